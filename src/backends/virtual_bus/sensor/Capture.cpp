#include "backends/virtual_bus/sensor/Capture.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <exception>
#include <new>
#include <utility>

#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::virtual_bus {
namespace {

constexpr uint64_t kSilenceIsErrorNs = 2'000'000'000;
constexpr uint64_t kLongestWaitNs = 100'000'000;  // between two looks at the faults
constexpr uint64_t kStandstillNs = 500'000'000;   // a wait that took so much longer was none of the capture thread's

double seconds(uint64_t nanoseconds) {
    return static_cast<double>(nanoseconds) * 1e-9;
}

}  // namespace

Capture::Capture(Clock& clock, FrameExchange& frames, VirtualMcu& mcu, SensorControls& controls, Setup setup)
    : systemClock(clock),
      frameExchange(frames),
      microController(mcu),
      sensorControls(controls),
      cameraSetup(std::move(setup)),
      pipeline(cameraSetup.width, cameraSetup.height),
      axis(clock),
      faultFeed(cameraSetup.camera, cameraSetup.faults, cameraSetup.control_file),
      lastFrame(clock.monotonicNanoseconds()),
      lastAlive(lastFrame.load(std::memory_order_relaxed)) {
    frameExchange.reset(static_cast<std::size_t>(cameraSetup.width) * static_cast<std::size_t>(cameraSetup.height) * 2);
    cameraSetup.mcu.frame_period_ns = static_cast<double>(cameraSetup.images->period());
    microController.start(axis, *cameraSetup.inertial, cameraSetup.mcu);
    try {
        captureThread = std::thread(&Capture::run, this);
    } catch (...) {
        microController.stop();
        throw;
    }
}

Capture::~Capture() {
    {
        const MutexLock lock(mutex);
        stopping = true;
    }
    wake.notify_all();
    captureThread.join();
    microController.stop();
    frameExchange.wake();
}

FrameStatus Capture::status() const {
    if (const FrameStatus status = finalStatus.load(std::memory_order_acquire); status != NO_FRAME) {
        return status;
    }
    const uint64_t last = lastFrame.load(std::memory_order_acquire);
    const uint64_t alive = lastAlive.load(std::memory_order_acquire);
    const bool silent = alive > last && alive - last > kSilenceIsErrorNs;
    const bool hanging = waitedInVain.load(std::memory_order_relaxed) > kSilenceIsErrorNs;
    return silent || hanging ? SOURCE_ERROR : NO_FRAME;
}

void Capture::noteWait(uint64_t nanoseconds) {
    const uint64_t alive = lastAlive.load(std::memory_order_acquire);
    const bool hanging = alive == aliveAtLastWait;
    aliveAtLastWait = alive;
    waitedInVain.store(hanging ? waitedInVain.load(std::memory_order_relaxed) + nanoseconds : 0,
                       std::memory_order_relaxed);
}

void Capture::noteAlive() {
    const uint64_t now = systemClock.monotonicNanoseconds();
    const uint64_t since = now - lastAlive.load(std::memory_order_relaxed);
    if (since > kStandstillNs) {
        lastFrame.store(std::min(now, lastFrame.load(std::memory_order_relaxed) + since), std::memory_order_release);
    }
    lastAlive.store(now, std::memory_order_release);
}

void Capture::finish(FrameStatus status) {
    finalStatus.store(status, std::memory_order_release);
    frameExchange.wake();
}

bool Capture::waitUntil(uint64_t deadline) {
    const MutexLock lock(mutex);
    while (!stopping) {
        const uint64_t now = axis.elapsed();
        noteAlive();
        if (now >= deadline) {
            return true;
        }
        wake.wait_for(mutex, std::chrono::nanoseconds(deadline - now));
    }
    return false;
}

void Capture::run() {
    try {
        playImages();
    } catch (const std::exception& problem) {
        ORU_LOG(Error, "{} Camera {} stops: {}.", kTagKoru, cameraSetup.camera, problem.what());
        finish(SOURCE_ERROR);
    }
}

void Capture::playImages() {
    uint64_t due = 0;
    while (cameraSetup.images->next(due)) {
        // A source with long pauses must not hide a fault that begins in one.
        Link link = followFaults(axis.elapsed());
        while (link != Link::LOST && axis.elapsed() + kLongestWaitNs < due) {
            if (!waitUntil(axis.elapsed() + kLongestWaitNs)) {
                return;
            }
            link = followFaults(axis.elapsed());
        }
        const uint64_t moment = due + jitter(due);
        if (!waitUntil(moment)) {
            return;
        }
        link = link == Link::LOST ? link : followFaults(moment);
        if (link == Link::LOST) {
            finish(SOURCE_ERROR);
            return;
        }
        const bool late = axis.elapsed() - moment >= cameraSetup.images->patience();
        if (late || link == Link::SILENT || happens(Fault::DROP_RATE, moment)) {
            loseNext(Loss::SENSOR_GAP);
        } else if (happens(Fault::DAMAGE_RATE, moment)) {
            loseNext(Loss::DAMAGED);
        } else {
            produce(moment);
        }
        ++imageNumber;
    }
    finish(INPUT_ENDED);
}

Capture::Link Capture::followFaults(uint64_t moment) {
    faultPlan = &faultFeed.poll();
    faultTime = std::max(faultTime, moment);
    moment = faultTime;
    const double now = seconds(moment);
    axis.followSystemClock();
    const auto offset = static_cast<int64_t>(faultPlan->at(Fault::CLOCK_OFFSET_MS, now));
    if (offset != clockOffsetMs) {
        (void)microController.isReady();  // brings the samples before the step up to date
        axis.step((offset - clockOffsetMs) * 1'000'000);
        clockOffsetMs = offset;
    }
    followPlug(faultPlan->at(Fault::UNPLUGGED, now) != 0.0, moment);
    microController.setSilent(unpluggedNow || faultPlan->at(Fault::MCU_SILENT, now) != 0.0);
    if (unpluggedNow && moment - unpluggedSince > kSilenceIsErrorNs) {
        ORU_LOG(Error, "{} Camera {} has been unplugged for 2 s and is given up.", kTagKoru, cameraSetup.camera);
        return Link::LOST;
    }
    return unpluggedNow || faultPlan->at(Fault::STALL, now) != 0.0 ? Link::SILENT : Link::UP;
}

void Capture::followPlug(bool unplugged, uint64_t moment) {
    if (unplugged == unpluggedNow) {
        return;
    }
    unpluggedNow = unplugged;
    if (unplugged) {
        unpluggedSince = moment;
        ORU_LOG(Error, "{} Camera {} was unplugged.", kTagKoru, cameraSetup.camera);
    } else {
        ORU_LOG(Warning, "{} Camera {} was plugged in again.", kTagKoru, cameraSetup.camera);
    }
}

uint64_t Capture::jitter(uint64_t moment) {
    if (faultPlan == nullptr) {
        return 0;
    }
    // Less than a period, so that images keep their order.
    const double longest = std::min(faultPlan->at(Fault::JITTER_MS, seconds(moment)) * 1e6,
                                    0.9 * static_cast<double>(cameraSetup.images->period()));
    return longest <= 0.0
               ? 0
               : static_cast<uint64_t>(std::uniform_real_distribution<double>(0.0, longest)(randomGenerator));
}

bool Capture::happens(Fault fault, uint64_t moment) {
    const double rate = faultPlan->at(fault, seconds(moment));
    return rate > 0.0 && std::uniform_real_distribution<double>(0.0, 1.0)(randomGenerator) < rate;
}

void Capture::loseNext(Loss cause) {
    cameraSetup.images->skip();
    frameExchange.countLost(cause);
}

void Capture::describe(Frame& frame, const ImageSettings& settings) const {
    FrameInfo& info = frame.info;
    info = {};
    info.known = FrameInfo::NUMBER | FrameInfo::CAPTURE_TIME | FrameInfo::EXPOSURE_TIME | FrameInfo::ANALOGUE_GAIN |
                 FrameInfo::DIGITAL_GAIN | FrameInfo::WHITE_BALANCE | FrameInfo::HDR | FrameInfo::REGION |
                 FrameInfo::LOST_BEFORE;
    info.number = imageNumber;
    info.capture_time = frame.time;
    info.exposure_time_us = static_cast<uint32_t>(settings.exposure_time_us);
    info.analogue_gain_mdb = static_cast<uint32_t>(settings.analogue_gain_mdb);
    info.digital_gain_mdb = static_cast<uint32_t>(settings.digital_gain_mdb);
    info.white_balance_k = static_cast<uint32_t>(settings.white_balance);
    info.hdr = settings.hdr;
    info.region = settings.region;
    if (frame.has_imu) {
        info.known |= FrameInfo::SYNC_COUNT;
        info.sync_count = frame.imu.sync_count;
    }
}

/// One image that memory does not suffice for is lost, not the camera.
bool Capture::drawn(uint64_t moment, unsigned char* pixels) {
    try {
        return cameraSetup.images->draw(moment, pixels, pipeline) == ImageResult::DRAWN;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void Capture::produce(uint64_t moment) {
    Frame& frame = frameExchange.writeBuffer();
    const ImageSettings settings = sensorControls.image();
    pipeline.begin(settings);
    if (!drawn(moment, frame.pixels.data())) {
        frameExchange.countLost(Loss::DECODE_FAILED);
        return;
    }
    pipeline.finish(frame.pixels.data());
    sensorControls.observe(pipeline.meanLuma());
    frame.time = axis.stamp(moment);
    frame.has_imu = microController.packetForImage(moment, frame.imu);
    describe(frame, settings);
    lastFrame.store(systemClock.monotonicNanoseconds(), std::memory_order_release);
    frameExchange.publish();
}

}  // namespace oru::virtual_bus
