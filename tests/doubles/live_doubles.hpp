#pragma once

#include <fmt/core.h>

#include <deque>
#include <functional>
#include <map>
#include <vector>

#include "doubles/call_log.hpp"
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
    std::function<void()> onWait;
    McuScript mcu;
};

class ScriptedMcu final : public KORUmcu {
public:
    ScriptedMcu(McuScript& script, CallLog& log) : script_(script), log_(log) {}

    ImuCalibration exportCalib() override { return script_.calibration; }
    IMUPacket getIMUPose(int index) override {
        log_.add(fmt::format("getIMUPose {}", index));
        if (script_.poses.empty()) {
            return {};
        }
        const IMUPacket pose = script_.poses.front();
        if (script_.poses.size() > 1) {
            script_.poses.pop_front();
        }
        return pose;
    }
    Transform getIMUCameraTransform() override { return script_.imuToCamera; }
    std::vector<IMUPacket> getIMUPacketBatch(unsigned long from, unsigned long to) override {
        log_.add(fmt::format("getIMUPacketBatch {} {}", from, to));
        return script_.batch;
    }
    unsigned int getMCUFirmwareVersion() override { return script_.firmware; }
    bool isReady() override { return script_.ready; }

private:
    McuScript& script_;
    CallLog& log_;
};

class ScriptedGrabber final : public LiveCameraGrabber {
public:
    ScriptedGrabber(GrabberScript& script, CallLog& log, INPUT_TYPE type)
        : script_(script), log_(log), mcu_(script.mcu, log), type_(type) {
        log_.add(fmt::format("makeGrabber {}", static_cast<int>(type)));
    }
    ~ScriptedGrabber() override { log_.add("~grabber"); }

    void setInputType(INPUT_TYPE type) override { type_ = type; }
    [[nodiscard]] INPUT_TYPE inputType() const override { return type_; }
    void setMonoCapture(bool mono) override { log_.add(fmt::format("setMonoCapture {}", mono)); }
    SETUP_STATE setUp(int& id, int width, int height, int fps, int option, bool a, IMU_FREQ frequency, bool b,
                      bool hdr) override {
        log_.add(fmt::format("setUp {} {}x{} {} {} {} {} {} {}", id, width, height, fps, option, a,
                             static_cast<int>(frequency), b, hdr));
        id = id < 0 ? 0 : id;
        return script_.setUp;
    }
    int getEffectiveWidth() override { return script_.width; }
    int getEffectiveHeight() override { return script_.height; }
    MODEL getCameraModel() override { return script_.model; }
    int getSerialNumber() override { return script_.serial; }
    int getFWVersion() override { return script_.firmware; }
    int getRequestedFPS() override { return script_.fps; }
    void endSetup(unsigned char* unused) override { log_.add(unused == nullptr ? "endSetup null" : "endSetup"); }
    bool hasMCU() override { return script_.hasMcu; }
    KORUmcu* getMCU() override { return script_.mcuIsNull ? nullptr : &mcu_; }
    int waitForNewFrame(int milliseconds) override {
        log_.add(fmt::format("waitForNewFrame {}", milliseconds));
        if (script_.onWait) {
            script_.onWait();
        }
        return 0;
    }
    FrameStatus getFrameStatus() override {
        if (script_.statuses.empty()) {
            return script_.thenStatus;
        }
        const FrameStatus status = script_.statuses.front();
        script_.statuses.pop_front();
        return status;
    }
    void enterCriticalSection() override { log_.add("enter"); }
    void exitCriticalSection() override { log_.add("exit"); }
    unsigned char* getPixels() override {
        log_.add("getPixels");
        return script_.pixelsAreNull || script_.pixels.empty() ? nullptr : script_.pixels.data();
    }
    Timestamp getTimeStamp() override { return script_.time; }
    const IMUPacket* getIMUPacket() override { return script_.packetIsNull ? nullptr : &script_.packet; }
    void afterGrab() override {
        log_.add("afterGrab");
        script_.time += script_.timeStep;
    }
    void close(bool wait) override { log_.add(fmt::format("closeGrabber {}", wait)); }

    bool getVideoSettingRange(VIDEO_SETTINGS, int& min, int& max) override {
        min = 0;
        max = 100;
        return script_.knowsRange;
    }
    bool valueInRange(VIDEO_SETTINGS, int) override { return script_.accepts; }
    int getGrabberSettingsValue(VIDEO_SETTINGS setting) override { return script_.values[setting]; }
    int setGrabberSettingsValue(VIDEO_SETTINGS setting, int value, bool automatic) override {
        log_.add(fmt::format("set {} {} {}", static_cast<int>(setting), value, automatic));
        return 0;
    }
    int setGrabberSettingsValue(VIDEO_SETTINGS setting, std::pair<int, int> range, bool automatic) override {
        log_.add(fmt::format("set {} {}..{} {}", static_cast<int>(setting), range.first, range.second, automatic));
        return 0;
    }
    std::pair<int, int> getGrabberSettingsRangeValue(VIDEO_SETTINGS) override { return script_.range; }
    int getROIforAECAGC(int side, Rect& region) override {
        log_.add(fmt::format("getROI {}", side));
        region = script_.region;
        return script_.regionStatus;
    }
    int setROIforAECAGC(int side, Rect region) override {
        log_.add(fmt::format("setROI {} {},{} {}x{}", side, region.x, region.y, region.width, region.height));
        return script_.regionStatus;
    }
    int resetROIforAECAGC(int side) override {
        log_.add(fmt::format("resetROI {}", side));
        return script_.regionStatus;
    }
    [[nodiscard]] FrameCounters counters() const override { return script_.counters; }

private:
    GrabberScript& script_;
    CallLog& log_;
    ScriptedMcu mcu_;
    INPUT_TYPE type_;
};

}  // namespace oru::doubles
