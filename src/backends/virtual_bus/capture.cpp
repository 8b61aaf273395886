#include "backends/virtual_bus/capture.hpp"

#include <algorithm>
#include <chrono>
#include <utility>

namespace oru::virtual_bus {
namespace {

constexpr uint64_t kSecond = 1'000'000'000;
constexpr uint64_t kSilenceIsErrorNs = 2 * kSecond;

}  // namespace

Capture::Capture(Clock& clock, FrameExchange& frames, VirtualMcu& mcu, SensorControls& controls,
                 Setup setup)
    : clock_(clock),
      frames_(frames),
      mcu_(mcu),
      controls_(controls),
      setup_(std::move(setup)),
      pipeline_(setup_.width, setup_.height),
      axis_(clock),
      last_frame_(clock.monotonicNanoseconds()) {
    frames_.reset(static_cast<std::size_t>(setup_.width) * static_cast<std::size_t>(setup_.height) * 2);
    setup_.mcu.frame_period_ns = static_cast<double>(kSecond) / setup_.fps;
    mcu_.start(axis_, *setup_.inertial, setup_.mcu);
    thread_ = std::thread(&Capture::run, this);
}

Capture::~Capture() {
    {
        const MutexLock lock(mutex_);
        stop_ = true;
    }
    wake_.notify_all();
    thread_.join();
    mcu_.stop();
    frames_.wake();
}

FrameStatus Capture::status() const {
    if (ended_.load(std::memory_order_acquire)) {
        return INPUT_ENDED;
    }
    const uint64_t last = last_frame_.load(std::memory_order_acquire);
    const uint64_t now = clock_.monotonicNanoseconds();
    return now > last && now - last > kSilenceIsErrorNs ? SOURCE_ERROR : NO_FRAME;
}

uint64_t Capture::deadline(uint64_t index) const {
    // From the whole index each time, so that no rounding accumulates.
    const auto fps = static_cast<uint64_t>(setup_.fps);
    return index / fps * kSecond + index % fps * kSecond / fps;
}

bool Capture::waitUntil(uint64_t deadline) {
    const MutexLock lock(mutex_);
    while (!stop_) {
        const uint64_t now = axis_.elapsed();
        if (now >= deadline) {
            return true;
        }
        wake_.wait_for(mutex_, std::chrono::nanoseconds(deadline - now));
    }
    return false;
}

void Capture::run() {
    uint64_t index = 0;
    while (waitUntil(deadline(index))) {
        const uint64_t now = axis_.elapsed();
        uint64_t due = index;
        while (deadline(due + 1) <= now) {
            ++due;
        }
        if (due > index) {
            frames_.countLost(Loss::sensor_gap, due - index);
            index = due;
        }
        if (!produce(index)) {
            return;
        }
        ++index;
    }
}

bool Capture::produce(uint64_t index) {
    axis_.followSystemClock();
    const uint64_t moment = deadline(index);
    Frame& frame = frames_.writeBuffer();
    pipeline_.begin(controls_.picture());
    const PictureResult result = setup_.pictures->draw(moment, frame.pixels.data(), pipeline_);
    if (result == PictureResult::ended) {
        ended_.store(true, std::memory_order_release);
        frames_.wake();
        return false;
    }
    if (result == PictureResult::failed) {
        frames_.countLost(Loss::sensor_gap, 1);
        return true;
    }
    pipeline_.finish(frame.pixels.data());
    controls_.observe(pipeline_.meanLuma());
    frame.time = axis_.stamp(moment);
    frame.has_imu = mcu_.packetForPicture(moment, frame.imu);
    last_frame_.store(clock_.monotonicNanoseconds(), std::memory_order_release);
    frames_.publish();
    return true;
}

}  // namespace oru::virtual_bus
