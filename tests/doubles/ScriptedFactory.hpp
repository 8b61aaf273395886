#pragma once

#include "collaborators/CollaboratorFactory.hpp"
#include "doubles/CalibrationKeeper.hpp"
#include "doubles/ScriptedClock.hpp"
#include "doubles/live_doubles.hpp"
#include "doubles/platform_doubles.hpp"
#include "doubles/recorded_doubles.hpp"
#include "doubles/stream_doubles.hpp"

namespace oru::doubles {

/// Makes scripted collaborators; the scripts and the log outlive them.
class ScriptedFactory final : public CollaboratorFactory {
public:
    std::unique_ptr<LiveCameraGrabber> makeGrabber(INPUT_TYPE type) override {
        return std::make_unique<ScriptedGrabber>(grabber, log, type);
    }
    std::unique_ptr<rlxrw::RLXVideo> makeRlxVideo(RlxRole role) override {
        if (!hasRecordings) {
            return nullptr;
        }
        return std::make_unique<ScriptedRlx>(rlx, log, role == RlxRole::reader ? "reader" : "recorder");
    }
    std::unique_ptr<UDPInput> makeStreamInput(bool verbose) override {
        return hasStreams ? std::make_unique<ScriptedStreamInput>(streamInput, rlx, log, verbose) : nullptr;
    }
    std::unique_ptr<UDPOutput> makeStreamOutput(STREAMING_MODE, bool verbose) override {
        return hasStreams ? std::make_unique<ScriptedStreamOutput>(streamOutput, log, verbose) : nullptr;
    }
    std::unique_ptr<MonoRectifier> makeRectifier() override { return std::make_unique<ScriptedRectifier>(log); }
    std::unique_ptr<PlaybackRecorder> makePlaybackRecorder() override {
        return hasRecordings ? std::make_unique<ScriptedPlayback>(rlx, log) : nullptr;
    }
    DeviceDirectory& devices() override { return directory; }
    CalibrationSource& calibration() override { return calibrationSource; }
    GpuRuntime& gpu() override { return otherGpu != nullptr ? *otherGpu : gpuRuntime; }
    Clock& clock() override { return scriptedClock; }

    CallLog log;
    bool hasRecordings = true;
    bool hasStreams = true;
    GrabberScript grabber;
    RlxScript rlx;
    StreamInputScript streamInput;
    StreamOutputScript streamOutput;
    ScriptedDirectory directory{log};
    CalibrationKeeper calibrationSource{&log};
    ScriptedGpu gpuRuntime{log};
    std::shared_ptr<GpuRuntime> otherGpu;  ///< used instead where there is one
    ScriptedClock scriptedClock;
};

/// Keeps no log; its camera delivers frames of that size with inertial samples: for what counts allocations or time.
inline std::shared_ptr<ScriptedFactory> makeQuietFactory(int width = 1920, int height = 1200) {
    auto factory = std::make_shared<ScriptedFactory>();
    factory->log.listening = false;
    factory->hasRecordings = factory->hasStreams = false;
    GrabberScript& grabber = factory->grabber;
    grabber.width = width;
    grabber.height = height;
    grabber.pixels.assign(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 2, 0x80);
    grabber.packet.valid = true;
    grabber.packet.imu_timestamp = 1;
    grabber.packet.orientation[3] = 1.0F;
    grabber.mcu.poses = {grabber.packet};
    grabber.mcu.batch.assign(13, grabber.packet);
    return factory;
}

}  // namespace oru::doubles
