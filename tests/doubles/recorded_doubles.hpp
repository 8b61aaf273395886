#pragma once

#include <algorithm>
#include <deque>
#include <optional>
#include <string>
#include <utility>
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

struct RecordedFrame {
    std::vector<unsigned char> pixels;
    Timestamp time = 0;
    rlxrw::rlxSampleMetadata metadata{};
    std::optional<IMUPacket> imu;
    std::vector<IMUPacket> packets;
};

/// What a scripted reader answers; the recorder shares it under another name in the log.
struct RlxScript {
    std::deque<int> openings;  ///< then 0
    int repair = REPAIR_DONE;
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
    std::vector<RecordedFrame> frames;  ///< of the file last written
};

class ScriptedRlx : public rlxrw::RLXVideo {
public:
    ScriptedRlx(RlxScript& answers, CallLog& calls, std::string role)
        : script(answers), log(calls), name(std::move(role)) {}
    ~ScriptedRlx() override { log.add("~{}", name); }

    int open(const char* path) override {
        log.add("{} open {}", name, path);
        int result = rlxrw::RLX_OPENED;
        if (!script.openings.empty()) {
            result = script.openings.front();
            script.openings.pop_front();
        }
        loaded = result != 1 && result != 2;
        count = {};
        moveTo(0);
        return result;
    }
    void close() override {
        log.add("{} close", name);
        loaded = false;
        moveTo(0);
    }
    int repairFile(const char* in, const char* out, bool a, bool b) override {
        log.add("repair {} '{}' {} {}", in, out, a, b);
        return script.repair;
    }
    void setPosition(int frame) override {
        log.add("setPosition {}", frame);
        moveTo(std::clamp(frame, 0, frameCount()));
    }
    int getRLXVersion() override { return loaded ? script.version : 0; }
    rlxrw::IRLXWriter* v1() override { return getRLXVersion() == 1 ? &script.v1 : nullptr; }
    const rlxrw::RlxHeaderV2* v2() override { return getRLXVersion() == 2 ? &script.v2 : nullptr; }
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
        metadata = script.metadata.value_or(current != nullptr ? current->metadata : rlxrw::rlxSampleMetadata{});
        return script.metadata.has_value() || current != nullptr;
    }
    const Matrix4f* getIMUCamTransform() override { return script.imuToCamera ? &*script.imuToCamera : nullptr; }
    std::vector<IMUPacket> getFrameIMUPackets() override { return current != nullptr ? packets : script.framePackets; }
    bool getFrameIMU(IMUPacket& packet) override {
        packet = current != nullptr ? current->imu.value_or(IMUPacket{}) : IMUPacket{};
        return current != nullptr && current->imu.has_value();
    }
    void writeCurrentIMU(IMUPacket packet) override {
        log.add("{} writeCurrentIMU {}", name, packet.imu_timestamp);
        script.written.push_back(packet);
    }
    void takeWrittenPackets(std::vector<IMUPacket>& taken) override {
        taken.insert(taken.end(), script.written.begin(), script.written.end());
        script.written.clear();
    }
    [[nodiscard]] FrameStatus readFrame(unsigned char* pixels, std::size_t size, Timestamp& time) override {
        if (!loaded || next == script.frames.size()) {
            return loaded ? INPUT_ENDED : SOURCE_UNAVAILABLE;
        }
        if (script.frames[next].pixels.size() != size) {
            return SOURCE_ERROR;
        }
        current = &script.frames[next++];
        std::copy(current->pixels.begin(), current->pixels.end(), pixels);
        time = current->time;
        packets = std::exchange(passedOver, {});
        packets.insert(packets.end(), current->packets.begin(), current->packets.end());
        ++count.produced;
        ++count.delivered;
        return NEW_FRAME;
    }
    void skipFrame() override {
        const std::vector<IMUPacket>& skipped = script.frames.at(next++).packets;
        passedOver.insert(passedOver.end(), skipped.begin(), skipped.end());
        ++count.produced;
        ++count.late;
    }
    int frameCount() override { return loaded ? static_cast<int>(script.frames.size()) : 0; }
    int position() override { return static_cast<int>(next); }
    Timestamp frameTime(int frame) override {
        return frame >= 0 && frame < frameCount() ? script.frames[static_cast<std::size_t>(frame)].time : 0;
    }
    int create(const char* path, const rlxrw::RlxRecordingHeader& header) override {
        log.add("{} create {}", name, path);
        script.v2 = {header.serial_number, static_cast<int>(header.width), static_cast<int>(header.height),
                     header.fps,           header.decompression_platform,  header.flipped};
        script.model = header.model;
        script.hasImu = header.has_imu;
        script.mode = header.compression_mode;
        script.frames.clear();
        count = {};
        return rlxrw::RLX_CREATED;
    }
    int writeFrame(const rlxrw::RlxFrame& frame) override {
        script.frames.push_back({{frame.pixels, frame.pixels + frame.size},
                                 frame.time,
                                 frame.metadata,
                                 frame.imu != nullptr ? std::optional<IMUPacket>(*frame.imu) : std::nullopt,
                                 {frame.packets, frame.packets + frame.packet_count}});
        ++count.produced;
        ++count.delivered;
        return rlxrw::RLX_WRITTEN;
    }
    [[nodiscard]] FrameCounters counters() const override { return count; }

private:
    void moveTo(int frame) {
        next = static_cast<std::size_t>(frame);
        current = nullptr;
        passedOver.clear();
    }

    RlxScript& script;
    CallLog& log;
    std::string name;
    bool loaded = false;
    std::size_t next = 0;
    const RecordedFrame* current = nullptr;
    std::vector<IMUPacket> packets;     // of the current frame
    std::vector<IMUPacket> passedOver;  // of those before it
    FrameCounters count;
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
