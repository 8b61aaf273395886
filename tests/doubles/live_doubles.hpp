#pragma once

#include <deque>
#include <functional>
#include <map>
#include <vector>

#include "doubles/CallLog.hpp"
#include "oru_input/grabber/LiveCameraGrabber.hpp"

namespace oru::doubles {

/// What a scripted micro-controller answers.
struct McuScript {
    ImuCalibration calibration;
    std::deque<IMUPacket> poses;  ///< the last one stays
    Transform imuToCamera;
    std::vector<IMUPacket> batch;
    unsigned firmware = 517;
    bool ready = true;
};

/// What a scripted grabber answers, and what was asked of it.
struct GrabberScript {
    SETUP_STATE setUp = SETUP_OK;
    int width = 1920;
    int height = 1200;
    MODEL model = MODEL_MONO_3UM;
    int serial = 30010001;
    int firmware = 2001;
    int fps = 30;
    bool hasMcu = true;
    bool mcuIsNull = false;
    bool knowsRange = true;
    bool accepts = true;
    int regionStatus = 0;
    Rect region;
    std::pair<int, int> range{1, 9};
    std::map<VIDEO_SETTINGS, int> values;
    std::deque<FrameStatus> statuses;
    FrameStatus thenStatus = NEW_FRAME;
    std::vector<unsigned char> pixels;
    bool pixelsAreNull = false;
    Timestamp time = 1'000'000'000;
    Timestamp timeStep = 33'333'333;
    bool packetIsNull = false;
    IMUPacket packet;
    FrameCounters counters;
    FrameInfo info;  ///< known where it has a bit
    std::function<void()> onWait;
    std::function<void()> onRange;  ///< when a control is asked for its range
    McuScript mcu;
};

class ScriptedMcu final : public KORUmcu {
public:
    ScriptedMcu(McuScript& answers, CallLog& calls) : script(answers), log(calls) {}

    ImuCalibration exportCalib() override { return script.calibration; }
    IMUPacket getIMUPose(int index) override {
        log.add("getIMUPose {}", index);
        if (script.poses.empty()) {
            return {};
        }
        const IMUPacket pose = script.poses.front();
        if (script.poses.size() > 1) {
            script.poses.pop_front();
        }
        return pose;
    }
    Transform getIMUCameraTransform() override { return script.imuToCamera; }
    std::vector<IMUPacket> getIMUPacketBatch(unsigned long from, unsigned long to) override {
        log.add("getIMUPacketBatch {} {}", from, to);
        return script.batch;
    }
    unsigned int getMCUFirmwareVersion() override { return script.firmware; }
    bool isReady() override { return script.ready; }

private:
    McuScript& script;
    CallLog& log;
};

class ScriptedGrabber final : public LiveCameraGrabber {
public:
    ScriptedGrabber(GrabberScript& answers, CallLog& calls, INPUT_TYPE type)
        : script(answers), log(calls), mcu(answers.mcu, calls), kind(type) {
        log.add("makeGrabber {}", static_cast<int>(type));
    }
    ~ScriptedGrabber() override { log.add("~grabber"); }

    void setInputType(INPUT_TYPE type) override { kind = type; }
    [[nodiscard]] INPUT_TYPE inputType() const override { return kind; }
    void setMonoCapture(bool mono) override { log.add("setMonoCapture {}", mono); }
    SETUP_STATE setUp(int& id, int width, int height, int fps, int option, bool a, IMU_FREQ frequency, bool b,
                      bool hdr) override {
        log.add("setUp {} {}x{} {} {} {} {} {} {}", id, width, height, fps, option, a, static_cast<int>(frequency), b,
                hdr);
        id = id < 0 ? 0 : id;
        live = script.setUp == SETUP_OK;
        return script.setUp;
    }
    int getEffectiveWidth() override { return script.width; }
    int getEffectiveHeight() override { return script.height; }
    MODEL getCameraModel() override { return script.model; }
    int getSerialNumber() override { return script.serial; }
    int getFWVersion() override { return script.firmware; }
    int getRequestedFPS() override { return script.fps; }
    void endSetup(unsigned char* unused) override { log.add("{}", unused == nullptr ? "endSetup null" : "endSetup"); }
    bool hasMCU() override { return live && script.hasMcu; }
    KORUmcu* getMCU() override { return script.mcuIsNull ? nullptr : &mcu; }
    int waitForNewFrame(int milliseconds) override {
        log.add("waitForNewFrame {}", milliseconds);
        if (script.onWait) {
            script.onWait();
        }
        return 0;
    }
    FrameStatus getFrameStatus() override {
        if (!live) {
            return SOURCE_UNAVAILABLE;
        }
        if (script.statuses.empty()) {
            return script.thenStatus;
        }
        const FrameStatus status = script.statuses.front();
        script.statuses.pop_front();
        return status;
    }
    void enterCriticalSection() override { log.add("enter"); }
    void exitCriticalSection() override { log.add("exit"); }
    unsigned char* getPixels() override {
        log.add("getPixels");
        return !live || script.pixelsAreNull || script.pixels.empty() ? nullptr : script.pixels.data();
    }
    Timestamp getTimeStamp() override { return script.time; }
    bool getFrameInfo(FrameInfo& info) override {
        info = script.info;
        return info.known != 0;
    }
    const IMUPacket* getIMUPacket() override { return !live || script.packetIsNull ? nullptr : &script.packet; }
    void afterGrab() override {
        log.add("afterGrab");
        script.time += script.timeStep;
        ++script.counters.produced;
        ++script.counters.delivered;
    }
    void close(bool wait) override {
        log.add("closeGrabber {}", wait);
        live = false;
    }

    bool getVideoSettingRange(VIDEO_SETTINGS, int& min, int& max) override {
        if (script.onRange) {
            script.onRange();
        }
        min = 0;
        max = 100;
        return script.knowsRange;
    }
    bool valueInRange(VIDEO_SETTINGS, int) override { return script.accepts; }
    int getGrabberSettingsValue(VIDEO_SETTINGS setting) override { return script.values[setting]; }
    int setGrabberSettingsValue(VIDEO_SETTINGS setting, int value, bool automatic) override {
        log.add("set {} {} {}", static_cast<int>(setting), value, automatic);
        return 0;
    }
    int setGrabberSettingsValue(VIDEO_SETTINGS setting, std::pair<int, int> range, bool automatic) override {
        log.add("set {} {}..{} {}", static_cast<int>(setting), range.first, range.second, automatic);
        return 0;
    }
    std::pair<int, int> getGrabberSettingsRangeValue(VIDEO_SETTINGS) override { return script.range; }
    int getROIforAECAGC(int side, Rect& region) override {
        log.add("getROI {}", side);
        region = script.region;
        return script.regionStatus;
    }
    int setROIforAECAGC(int side, Rect region) override {
        log.add("setROI {} {},{} {}x{}", side, region.x, region.y, region.width, region.height);
        return script.regionStatus;
    }
    int resetROIforAECAGC(int side) override {
        log.add("resetROI {}", side);
        return script.regionStatus;
    }
    [[nodiscard]] FrameCounters counters() const override { return script.counters; }

private:
    GrabberScript& script;
    CallLog& log;
    ScriptedMcu mcu;
    INPUT_TYPE kind;
    bool live = false;
};

}  // namespace oru::doubles
