#pragma once

#include <algorithm>
#include <deque>
#include <functional>
#include <vector>

#include "collaborators/UDPInput.hpp"
#include "collaborators/UDPOutput.hpp"
#include "doubles/CallLog.hpp"
#include "doubles/recorded_doubles.hpp"

namespace oru::doubles {

/// A frame as a sender was given it.
struct SentFrame {
    std::vector<unsigned char> pixels;
    Timestamp time = 0;
    rlxrw::rlxSampleMetadata metadata{};
};

struct StreamInputScript {
    int opening = STREAM_CONNECTED;
    StreamDescription description{31020002, MODEL_MONO_2UM, 1001, 502, 1920, 1200, true, 1};
    int fps = 25;
    StreamImuPose pose;
    int versionByte = 5;
    std::deque<bool> frames;
    bool thenFrame = true;
    std::function<void()> duringRead;  ///< what the application does meanwhile
    std::deque<SentFrame> arrivals;    ///< come first, one a call, and count
    Timestamp time = 5'000'000'000;
    bool hasMetadata = true;
    rlxrw::rlxSampleMetadata metadata{};
    bool suppliesImu = true;
    IMUPacket imu;
    std::vector<IMUPacket> packets;
    bool knowsRange = true;
    std::map<VIDEO_SETTINGS, int> values;
    ImuCalibration imuCalibration;
    StreamInputStatus status;
};

class ScriptedStreamInput final : public UDPInput {
public:
    ScriptedStreamInput(StreamInputScript& answers, RlxScript& rlx, CallLog& calls, bool verbose)
        : script(answers), log(calls), streamRecorder(rlx, calls, "streamRecorder") {
        log.add("makeStreamInput {}", verbose);
    }
    ~ScriptedStreamInput() override { log.add("~streamInput"); }

    int open(String ip, unsigned short port, int unused) override {
        log.add("connect {} {} {}", ip.c_str(), port, unused);
        return script.opening;
    }
    bool readStreamData(unsigned char* image, unsigned char* second) override {
        log.add("{}", second == nullptr ? "readStreamData" : "readStreamData second");
        if (script.duringRead) {
            script.duringRead();
        }
        if (!script.arrivals.empty()) {
            const SentFrame& arrived = script.arrivals.front();
            std::copy(arrived.pixels.begin(), arrived.pixels.end(), image);
            script.time = arrived.time;
            script.metadata = arrived.metadata;
            script.arrivals.pop_front();
            ++count.produced;
            ++count.delivered;
            return true;
        }
        bool frame = script.thenFrame;
        if (!script.frames.empty()) {
            frame = script.frames.front();
            script.frames.pop_front();
        }
        if (frame) {
            image[0] = static_cast<unsigned char>(image[0] + 1);
            script.time += 40'000'000;
        }
        return frame;
    }
    Timestamp frameTimestamp() override { return script.time; }
    bool frameHasMetadata() override { return script.hasMetadata; }
    rlxrw::rlxSampleMetadata frameMetadata() override { return script.metadata; }
    StreamDescription description() override { return script.description; }
    int announcedFps() override { return script.fps; }
    StreamImuPose announcedImuPose() override { return script.pose; }
    int versionByte() override { return script.versionByte; }
    ImuCalibration announcedImuCalibration() override { return script.imuCalibration; }
    [[nodiscard]] StreamInputStatus status() const override { return script.status; }
    bool canSupplyCurrentImu() override { return script.suppliesImu; }
    bool getCurrentIMU(IMUPacket& packet) override {
        packet = script.imu;
        return script.suppliesImu;
    }
    std::vector<IMUPacket> takeImuPacketsBefore(Timestamp time) override {
        log.add("takeImuPacketsBefore {}", time);
        const auto later = std::stable_partition(script.packets.begin(), script.packets.end(),
                                                 [time](const auto& packet) { return packet.imu_timestamp < time; });
        std::vector<IMUPacket> earlier(script.packets.begin(), later);
        script.packets.erase(script.packets.begin(), later);
        return earlier;
    }
    rlxrw::RLXVideo& recorder() override { return streamRecorder; }
    [[nodiscard]] FrameCounters counters() const override { return count; }
    bool valueRange(VIDEO_SETTINGS, int& min, int& max) override {
        min = 1;
        max = 8;
        return script.knowsRange;
    }
    int getGrabberSettingsValue(VIDEO_SETTINGS setting) override { return script.values[setting]; }
    int setGrabberSettingsValue(VIDEO_SETTINGS setting, int value, bool automatic) override {
        log.add("stream set {} {} {}", static_cast<int>(setting), value, automatic);
        return 0;
    }
    int getGrabberSettingsValue(VIDEO_SETTINGS, int side, Rect& region) override {
        region = {1, 2, 3, static_cast<uint64_t>(4 + side)};
        return 0;
    }
    int setGrabberSettingsValue(VIDEO_SETTINGS, int side, Rect region, bool reset) override {
        log.add("stream setROI {} {}x{} {}", side, region.width, region.height, reset);
        return 0;
    }

private:
    StreamInputScript& script;
    CallLog& log;
    ScriptedRlx streamRecorder;
    FrameCounters count;
};

struct StreamOutputScript {
    int opening = SENDER_RUNNING;
    bool busy = false;
    bool running = true;
    bool imu = true;
    UDPOutConfig configuration{};
    std::vector<SentFrame> sent;
    std::vector<IMUPacket> samples;
    ImuCalibration imuCalibration;
};

class ScriptedStreamOutput final : public UDPOutput {
public:
    ScriptedStreamOutput(StreamOutputScript& answers, CallLog& calls, bool verbose) : script(answers), log(calls) {
        log.add("makeStreamOutput {}", verbose);
    }
    ~ScriptedStreamOutput() override { log.add("~streamOutput"); }

    int open(UDPOutConfig configuration) override {
        script.configuration = configuration;
        return script.opening;
    }
    void setGrabber(LiveCameraGrabber* grabber) override {
        log.add("{}", grabber == nullptr ? "setGrabber null" : "setGrabber");
    }
    void setImuCalibration(const ImuCalibration& calibration) override {
        log.add("setImuCalibration");
        script.imuCalibration = calibration;
    }
    void asyncingestYUVFrame(unsigned char* pixels, Timestamp time, rlxrw::rlxSampleMetadata metadata,
                             int size) override {
        log.add("send {} {}", time, size);
        script.sent.push_back({{pixels, pixels + size}, time, metadata});
        ++count.produced;
        ++count.delivered;
    }
    void waitingestYUVFrameProcessing() override { log.add("waitForSender"); }
    void noteSkippedFrame() override { log.add("skipped"); }
    void ingestIMU(IMUPacket packet) override {
        log.add("ingestIMU {}", packet.imu_timestamp);
        script.samples.push_back(packet);
    }
    [[nodiscard]] bool isBusy() const override { return script.busy; }
    [[nodiscard]] bool isRunning() const override { return script.running; }
    [[nodiscard]] bool carriesImu() const override { return script.imu; }
    [[nodiscard]] FrameCounters counters() const override { return count; }

private:
    StreamOutputScript& script;
    CallLog& log;
    FrameCounters count;
};

}  // namespace oru::doubles
