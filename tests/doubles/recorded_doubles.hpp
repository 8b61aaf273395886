#pragma once

#include <deque>
#include <optional>
#include <vector>

#include "collaborators/PlaybackRecorder.hpp"
#include "doubles/CallLog.hpp"

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
    ScriptedRlx(RlxScript& answers, CallLog& calls, std::string role)
        : script(answers), log(calls), name(std::move(role)) {}
    ~ScriptedRlx() override { log.add("~{}", name); }

    int open(const char* path) override {
        log.add("{} open {}", name, path);
        if (script.openings.empty()) {
            return 0;
        }
        const int result = script.openings.front();
        script.openings.pop_front();
        return result;
    }
    void close() override { log.add("{} close", name); }
    int repairFile(const char* in, const char* out, bool a, bool b) override {
        log.add("repair {} '{}' {} {}", in, out, a, b);
        return script.repair;
    }
    void setPosition(int frame) override { log.add("setPosition {}", frame); }
    int getRLXVersion() override { return script.version; }
    rlxrw::IRLXWriter* v1() override { return script.version == 1 ? &script.v1 : nullptr; }
    const rlxrw::RlxHeaderV2* v2() override { return script.version == 2 ? &script.v2 : nullptr; }
    MODEL getCameraModel() override { return script.model; }
    int getCameraFwVersion() override { return 1001; }
    int getIMUDataVersion() override { return script.imuDataVersion; }
    bool hasIMUData() override { return script.hasImu; }
    int getSharpenIntVal() override { return script.sharpness; }
    ImuCalibration getImuCalib() override { return {}; }
    RLX_COMPRESSION_MODE getCompressionMode() override { return script.mode; }
    bool getDecompressionPlatform() override {
        log.add("getDecompressionPlatform");
        return script.platform;
    }
    bool getCurrentIMU(IMUPacket& packet) override {
        packet = script.currentImu.value_or(IMUPacket{});
        return script.currentImu.has_value();
    }
    bool getCurrentMetadata(rlxrw::rlxSampleMetadata& metadata) override {
        metadata = script.metadata.value_or(rlxrw::rlxSampleMetadata{});
        return script.metadata.has_value();
    }
    const Matrix4f* getIMUCamTransform() override { return script.imuToCamera ? &*script.imuToCamera : nullptr; }
    std::vector<IMUPacket> getFrameIMUPackets() override { return script.framePackets; }
    void writeCurrentIMU(IMUPacket packet) override {
        log.add("{} writeCurrentIMU {}", name, packet.imu_timestamp);
        script.written.push_back(packet);
    }
    [[nodiscard]] FrameStatus readFrame(unsigned char*, std::size_t, Timestamp&) override { return INPUT_ENDED; }
    int frameCount() override { return 0; }
    int position() override { return 0; }
    int create(const char*, const rlxrw::RlxRecordingHeader&) override { return 1; }
    int writeFrame(const rlxrw::RlxFrame&) override { return 1; }
    [[nodiscard]] FrameCounters counters() const override { return {}; }

private:
    RlxScript& script;
    CallLog& log;
    std::string name;
};

class ScriptedPlayback final : public PlaybackRecorder {
public:
    ScriptedPlayback(RlxScript& answers, CallLog& calls) : script(answers), log(calls) {}
    ~ScriptedPlayback() override { log.add("~playback"); }

    [[nodiscard]] FrameStatus nextImageOfRLX(CameraFrameContext camera, bool flag) override {
        log.add("nextImageOfRLX {}", flag);
        FrameStatus status = script.thenStatus;
        if (!script.statuses.empty()) {
            status = script.statuses.front();
            script.statuses.pop_front();
        }
        camera.currentTimestamp += status == NEW_FRAME ? 33'000'000 : 0;
        return status;
    }
    void handleRLXFrameRecording(CameraFrameContext) override { log.add("handleRLXFrameRecording"); }
    void disableRecording(CameraFrameContext camera) override {
        log.add("disableRecording");
        camera.recordingEnabled = false;
        camera.recordingFrameBuffer = nullptr;
    }
    ERROR_CODE enableRecording(CameraFrameContext camera, const RecordingParameters& parameters,
                               const rlxrw::RlxRecordingHeader& source) override {
        log.add("enableRecording {} {}x{} {}", parameters.video_filename.c_str(), source.width, source.height,
                source.serial_number);
        camera.recordingEnabled = true;
        return SUCCESS;
    }

private:
    RlxScript& script;
    CallLog& log;
};

}  // namespace oru::doubles
