#include "backends/virtual_bus/capture.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::virtual_bus {
namespace {

constexpr uint64_t kSilenceIsErrorNs = 2'000'000'000;
constexpr uint64_t kLongestWaitNs = 100'000'000;  // between two looks at the faults

double seconds(uint64_t nanoseconds) {
    return static_cast<double>(nanoseconds) * 1e-9;
}

}  // namespace

Capture::Capture(Clock& clock, FrameExchange& frames, VirtualMcu& mcu, SensorControls& controls, Setup setup)
    : clock_(clock),
      frames_(frames),
      mcu_(mcu),
      controls_(controls),
      setup_(std::move(setup)),
      pipeline_(setup_.width, setup_.height),
      axis_(clock),
      faults_(setup_.camera, setup_.faults, setup_.control_file),
      last_frame_(clock.monotonicNanoseconds()) {
    frames_.reset(static_cast<std::size_t>(setup_.width) * static_cast<std::size_t>(setup_.height) * 2);
    setup_.mcu.frame_period_ns = static_cast<double>(setup_.pictures->period());
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
    if (const FrameStatus status = final_.load(std::memory_order_acquire); status != NO_FRAME) {
        return status;
    }
    const uint64_t last = last_frame_.load(std::memory_order_acquire);
    const uint64_t now = clock_.monotonicNanoseconds();
    return now > last && now - last > kSilenceIsErrorNs ? SOURCE_ERROR : NO_FRAME;
}

void Capture::finish(FrameStatus status) {
    final_.store(status, std::memory_order_release);
    frames_.wake();
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
    uint64_t due = 0;
    while (setup_.pictures->next(due)) {
        // A source with long pauses must not hide a fault that begins in one.
        Link link = followFaults(axis_.elapsed());
        while (link != Link::lost && axis_.elapsed() + kLongestWaitNs < due) {
            if (!waitUntil(axis_.elapsed() + kLongestWaitNs)) {
                return;
            }
            link = followFaults(axis_.elapsed());
        }
        const uint64_t moment = due + jitter(due);
        if (!waitUntil(moment)) {
            return;
        }
        link = link == Link::lost ? link : followFaults(moment);
        if (link == Link::lost) {
            finish(SOURCE_ERROR);
            return;
        }
        const bool late = axis_.elapsed() - moment >= setup_.pictures->patience();
        if (late || link == Link::silent || happens(Fault::drop_rate, moment)) {
            loseNext(Loss::sensor_gap);
        } else if (happens(Fault::damage_rate, moment)) {
            loseNext(Loss::damaged);
        } else {
            produce(moment);
        }
    }
    finish(INPUT_ENDED);
}

Capture::Link Capture::followFaults(uint64_t moment) {
    plan_ = &faults_.poll();
    fault_time_ = std::max(fault_time_, moment);
    moment = fault_time_;
    const double now = seconds(moment);
    axis_.followSystemClock();
    const auto offset = static_cast<int64_t>(plan_->at(Fault::clock_offset_ms, now));
    if (offset != clock_offset_ms_) {
        (void)mcu_.isReady();  // brings the samples before the step up to date
        axis_.step((offset - clock_offset_ms_) * 1'000'000);
        clock_offset_ms_ = offset;
    }
    followPlug(plan_->at(Fault::unplugged, now) != 0.0, moment);
    mcu_.setSilent(unplugged_ || plan_->at(Fault::mcu_silent, now) != 0.0);
    if (unplugged_ && moment - unplugged_since_ > kSilenceIsErrorNs) {
        ORU_LOG(Error, "{} Camera {} has been unplugged for 2 s and is given up.", kTagKoru, setup_.camera);
        return Link::lost;
    }
    return unplugged_ || plan_->at(Fault::stall, now) != 0.0 ? Link::silent : Link::up;
}

void Capture::followPlug(bool unplugged, uint64_t moment) {
    if (unplugged == unplugged_) {
        return;
    }
    unplugged_ = unplugged;
    if (unplugged) {
        unplugged_since_ = moment;
        ORU_LOG(Error, "{} Camera {} was unplugged.", kTagKoru, setup_.camera);
    } else {
        ORU_LOG(Warning, "{} Camera {} was plugged in again.", kTagKoru, setup_.camera);
    }
}

uint64_t Capture::jitter(uint64_t moment) {
    if (plan_ == nullptr) {
        return 0;
    }
    // Less than a period, so that pictures keep their order.
    const double longest = std::min(plan_->at(Fault::jitter_ms, seconds(moment)) * 1e6,
                                    0.9 * static_cast<double>(setup_.pictures->period()));
    return longest <= 0.0 ? 0 : static_cast<uint64_t>(std::uniform_real_distribution<double>(0.0, longest)(random_));
}

bool Capture::happens(Fault fault, uint64_t moment) {
    const double rate = plan_->at(fault, seconds(moment));
    return rate > 0.0 && std::uniform_real_distribution<double>(0.0, 1.0)(random_) < rate;
}

void Capture::loseNext(Loss cause) {
    setup_.pictures->skip();
    frames_.countLost(cause);
}

void Capture::produce(uint64_t moment) {
    Frame& frame = frames_.writeBuffer();
    pipeline_.begin(controls_.picture());
    if (setup_.pictures->draw(moment, frame.pixels.data(), pipeline_) != PictureResult::drawn) {
        frames_.countLost(Loss::decode_failed);
        return;
    }
    pipeline_.finish(frame.pixels.data());
    controls_.observe(pipeline_.meanLuma());
    frame.time = axis_.stamp(moment);
    frame.has_imu = mcu_.packetForPicture(moment, frame.imu);
    last_frame_.store(clock_.monotonicNanoseconds(), std::memory_order_release);
    frames_.publish();
}

}  // namespace oru::virtual_bus
