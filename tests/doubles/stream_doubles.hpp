#pragma once

#include <fmt/core.h>

#include <cstring>
#include <deque>
#include <vector>

#include "collaborators/UDPInput.hpp"
#include "collaborators/UDPOutput.hpp"
#include "doubles/call_log.hpp"
#include "doubles/recorded_doubles.hpp"

namespace oru::doubles {

struct StreamInputScript {
    int opening = 0;
    StreamDescription description{31020002, MODEL_MONO_2UM, 1001, 502, 1920, 1200, true, 1};
    int fps = 25;
    StreamImuPose pose;
    int versionByte = 5;
    std::deque<bool> frames;
    bool thenFrame = true;
    Timestamp time = 5'000'000'000;
    bool hasMetadata = true;
    rlxrw::rlxSampleMetadata metadata{};
    bool suppliesImu = true;
    IMUPacket imu;
    std::vector<IMUPacket> packets;
    bool knowsRange = true;
    std::map<VIDEO_SETTINGS, int> values;
};

class ScriptedStreamInput final : public UDPInput {
public:
    ScriptedStreamInput(StreamInputScript& script, RlxScript& rlx, CallLog& log, bool verbose)
        : script_(script), log_(log), recorder_(rlx, log, "streamRecorder") {
        log_.add(fmt::format("makeStreamInput {}", verbose));
    }
    ~ScriptedStreamInput() override { log_.add("~streamInput"); }

    int open(String ip, unsigned short port, int unused) override {
        log_.add(fmt::format("connect {} {} {}", ip.c_str(), port, unused));
        return script_.opening;
    }
    bool readStreamData(unsigned char* image, unsigned char* second) override {
        log_.add(second == nullptr ? "readStreamData" : "readStreamData second");
        bool frame = script_.thenFrame;
        if (!script_.frames.empty()) {
            frame = script_.frames.front();
            script_.frames.pop_front();
        }
        if (frame) {
            image[0] = static_cast<unsigned char>(image[0] + 1);
            script_.time += 40'000'000;
        }
        return frame;
    }
    Timestamp frameTimestamp() override { return script_.time; }
    bool frameHasMetadata() override { return script_.hasMetadata; }
    rlxrw::rlxSampleMetadata frameMetadata() override { return script_.metadata; }
    StreamDescription description() override { return script_.description; }
    int announcedFps() override { return script_.fps; }
    StreamImuPose announcedImuPose() override { return script_.pose; }
    int versionByte() override { return script_.versionByte; }
    bool canSupplyCurrentImu() override { return script_.suppliesImu; }
    bool getCurrentIMU(IMUPacket& packet) override {
        packet = script_.imu;
        return script_.suppliesImu;
    }
    std::vector<IMUPacket> takeImuPacketsBefore(Timestamp time) override {
        log_.add(fmt::format("takeImuPacketsBefore {}", time));
        return script_.packets;
    }
    rlxrw::RLXVideo& recorder() override { return recorder_; }
    [[nodiscard]] FrameCounters counters() const override { return {}; }
    bool valueRange(VIDEO_SETTINGS, int& min, int& max) override {
        min = 1;
        max = 8;
        return script_.knowsRange;
    }
    int getGrabberSettingsValue(VIDEO_SETTINGS setting) override { return script_.values[setting]; }
    int setGrabberSettingsValue(VIDEO_SETTINGS setting, int value, bool automatic) override {
        log_.add(fmt::format("stream set {} {} {}", static_cast<int>(setting), value, automatic));
        return 0;
    }
    int getGrabberSettingsValue(VIDEO_SETTINGS, int side, Rect& region) override {
        region = {1, 2, 3, static_cast<uint64_t>(4 + side)};
        return 0;
    }
    int setGrabberSettingsValue(VIDEO_SETTINGS, int side, Rect region, bool reset) override {
        log_.add(fmt::format("stream setROI {} {}x{} {}", side, region.width, region.height, reset));
        return 0;
    }

private:
    StreamInputScript& script_;
    CallLog& log_;
    ScriptedRlx recorder_;
};

struct StreamOutputScript {
    int opening = 0;
    bool busy = false;
    bool running = true;
    bool imu = true;
    UDPOutConfig configuration{};
    rlxrw::rlxSampleMetadata metadata{};
};

class ScriptedStreamOutput final : public UDPOutput {
public:
    ScriptedStreamOutput(StreamOutputScript& script, CallLog& log, bool verbose) : script_(script), log_(log) {
        log_.add(fmt::format("makeStreamOutput {}", verbose));
    }
    ~ScriptedStreamOutput() override { log_.add("~streamOutput"); }

    int open(UDPOutConfig configuration) override {
        script_.configuration = configuration;
        return script_.opening;
    }
    void setGrabber(LiveCameraGrabber* grabber) override {
        log_.add(grabber == nullptr ? "setGrabber null" : "setGrabber");
    }
    void asyncingestYUVFrame(unsigned char*, Timestamp time, rlxrw::rlxSampleMetadata metadata, int size) override {
        log_.add(fmt::format("send {} {}", time, size));
        script_.metadata = metadata;
    }
    void waitingestYUVFrameProcessing() override { log_.add("waitForSender"); }
    void noteSkippedFrame() override { log_.add("skipped"); }
    void ingestIMU(IMUPacket packet) override { log_.add(fmt::format("ingestIMU {}", packet.imu_timestamp)); }
    [[nodiscard]] bool isBusy() const override { return script_.busy; }
    [[nodiscard]] bool isRunning() const override { return script_.running; }
    [[nodiscard]] bool carriesImu() const override { return script_.imu; }
    [[nodiscard]] FrameCounters counters() const override { return {}; }

private:
    StreamOutputScript& script_;
    CallLog& log_;
};

}  // namespace oru::doubles
