#pragma once

#include <fmt/core.h>

#include <deque>
#include <optional>
#include <vector>

#include "collaborators/PlaybackRecorder.hpp"
#include "doubles/call_log.hpp"

namespace oru::doubles {

struct HeaderScript final : rlxrw::IRLXWriter {
    int serial = 31020002;
    int width = 1920;
    int height = 1080;
    float fps = 15.5F;

    int getSerialNumber() override { return serial; }
    int getWidth() override { return width; }
    int getHeight() override { return height; }
    float getfps() override { return fps; }
    int getType() override { return 0; }
};

/// What a scripted reader answers; the recorder shares it under another name in the log.
struct RlxScript {
    std::deque<int> openings;  ///< then 0
    int repair = 0;
    int version = 2;
    HeaderScript v1;
    rlxrw::RlxHeaderV2 v2{31020002, 1920, 1080, 30.0F, false, false};
    MODEL model = MODEL_MONO_2UM;
    int imuDataVersion = 3;
    bool hasImu = true;
    int sharpness = 4;
    RLX_COMPRESSION_MODE mode = RLX_H264;
    bool platform = false;
    std::optional<IMUPacket> currentImu;
    std::optional<rlxrw::rlxSampleMetadata> metadata;
    std::optional<Matrix4f> imuToCamera;
    std::vector<IMUPacket> framePackets;
    std::deque<FrameStatus> statuses;
    FrameStatus thenStatus = NEW_FRAME;
    std::vector<IMUPacket> written;
};

class ScriptedRlx final : public rlxrw::RLXVideo {
public:
    ScriptedRlx(RlxScript& script, CallLog& log, std::string name)
        : script_(script), log_(log), name_(std::move(name)) {}
    ~ScriptedRlx() override { log_.add("~" + name_); }

    int open(const char* path) override {
        log_.add(fmt::format("{} open {}", name_, path));
        if (script_.openings.empty()) {
            return 0;
        }
        const int result = script_.openings.front();
        script_.openings.pop_front();
        return result;
    }
    void close() override { log_.add(name_ + " close"); }
    int repairFile(const char* in, const char* out, bool a, bool b) override {
        log_.add(fmt::format("repair {} '{}' {} {}", in, out, a, b));
        return script_.repair;
    }
    void setPosition(int frame) override { log_.add(fmt::format("setPosition {}", frame)); }
    int getRLXVersion() override { return script_.version; }
    rlxrw::IRLXWriter* v1() override { return script_.version == 1 ? &script_.v1 : nullptr; }
    const rlxrw::RlxHeaderV2* v2() override { return script_.version == 2 ? &script_.v2 : nullptr; }
    MODEL getCameraModel() override { return script_.model; }
    int getCameraFwVersion() override { return 1001; }
    int getIMUDataVersion() override { return script_.imuDataVersion; }
    bool hasIMUData() override { return script_.hasImu; }
    int getSharpenIntVal() override { return script_.sharpness; }
    ImuCalibration getImuCalib() override { return {}; }
    RLX_COMPRESSION_MODE getCompressionMode() override { return script_.mode; }
    bool getDecompressionPlatform() override {
        log_.add("getDecompressionPlatform");
        return script_.platform;
    }
    bool getCurrentIMU(IMUPacket& packet) override {
        packet = script_.currentImu.value_or(IMUPacket{});
        return script_.currentImu.has_value();
    }
    bool getCurrentMetadata(rlxrw::rlxSampleMetadata& metadata) override {
        metadata = script_.metadata.value_or(rlxrw::rlxSampleMetadata{});
        return script_.metadata.has_value();
    }
    const Matrix4f* getIMUCamTransform() override { return script_.imuToCamera ? &*script_.imuToCamera : nullptr; }
    std::vector<IMUPacket> getFrameIMUPackets() override { return script_.framePackets; }
    void writeCurrentIMU(IMUPacket packet) override {
        log_.add(fmt::format("{} writeCurrentIMU {}", name_, packet.imu_timestamp));
        script_.written.push_back(packet);
    }
    [[nodiscard]] FrameStatus readFrame(unsigned char*, std::size_t, Timestamp&) override { return INPUT_ENDED; }
    int frameCount() override { return 0; }
    int position() override { return 0; }
    int create(const char*, const rlxrw::RlxRecordingHeader&) override { return 1; }
    int writeFrame(const rlxrw::RlxFrame&) override { return 1; }
    [[nodiscard]] FrameCounters counters() const override { return {}; }

private:
    RlxScript& script_;
    CallLog& log_;
    std::string name_;
};

class ScriptedPlayback final : public PlaybackRecorder {
public:
    ScriptedPlayback(RlxScript& script, CallLog& log) : script_(script), log_(log) {}
    ~ScriptedPlayback() override { log_.add("~playback"); }

    [[nodiscard]] FrameStatus nextImageOfRLX(CameraFrameContext camera, bool flag) override {
        log_.add(fmt::format("nextImageOfRLX {}", flag));
        FrameStatus status = script_.thenStatus;
        if (!script_.statuses.empty()) {
            status = script_.statuses.front();
            script_.statuses.pop_front();
        }
        camera.currentTimestamp += status == NEW_FRAME ? 33'000'000 : 0;
        return status;
    }
    void handleRLXFrameRecording(CameraFrameContext) override { log_.add("handleRLXFrameRecording"); }
    void disableRecording(CameraFrameContext camera) override {
        log_.add("disableRecording");
        camera.recordingEnabled = false;
        camera.recordingFrameBuffer = nullptr;
    }
    ERROR_CODE enableRecording(CameraFrameContext camera, const RecordingParameters& parameters,
                               const rlxrw::RlxRecordingHeader& source) override {
        log_.add(fmt::format("enableRecording {} {}x{} {}", parameters.video_filename.c_str(), source.width,
                             source.height, source.serial_number));
        camera.recordingEnabled = true;
        return SUCCESS;
    }

private:
    RlxScript& script_;
    CallLog& log_;
};

}  // namespace oru::doubles
