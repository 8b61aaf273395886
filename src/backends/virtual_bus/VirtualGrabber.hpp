#pragma once

#include <memory>

#include "backends/virtual_bus/VirtualBus.hpp"
#include "backends/virtual_bus/inertial/VirtualMcu.hpp"
#include "backends/virtual_bus/sensor/Capture.hpp"
#include "backends/virtual_bus/sensor/frame_exchange.hpp"
#include "oru/calibration.hpp"

namespace oru::virtual_bus {

/// One camera of the virtual bus behind the grabber's contract.
class VirtualGrabber final : public LiveCameraGrabber {
public:
    VirtualGrabber(std::shared_ptr<VirtualBus> bus, INPUT_TYPE type);
    ~VirtualGrabber() override;

    void setInputType(INPUT_TYPE type) override { chosenType = type; }
    [[nodiscard]] INPUT_TYPE inputType() const override { return chosenType; }
    void setMonoCapture(bool /*mono*/) override {}
    SETUP_STATE setUp(int& id, int width, int height, int fps, int option, bool, IMU_FREQ frequency, bool,
                      bool hdr) override;
    int getEffectiveWidth() override { return imageWidth; }
    int getEffectiveHeight() override { return imageHeight; }
    MODEL getCameraModel() override { return claimedCamera.model; }
    int getSerialNumber() override { return static_cast<int>(claimedCamera.serial); }
    int getFWVersion() override { return claimedCamera.firmware; }
    int getRequestedFPS() override { return framesPerSecond; }
    void endSetup(unsigned char* /*unused*/) override {}
    bool hasMCU() override { return mcu.present(); }
    KORUmcu* getMCU() override { return &mcu; }

    int waitForNewFrame(int milliseconds) override;
    FrameStatus getFrameStatus() override;
    void enterCriticalSection() override { frames.latch(); }
    void exitCriticalSection() override {}
    unsigned char* getPixels() override;
    Timestamp getTimeStamp() override;
    const IMUPacket* getIMUPacket() override;
    bool getFrameInfo(FrameInfo& info) override;
    void afterGrab() override { frames.taken(); }
    void close(bool wait) override;

    bool getVideoSettingRange(VIDEO_SETTINGS setting, int& min, int& max) override {
        return controls.range(setting, min, max);
    }
    bool valueInRange(VIDEO_SETTINGS setting, int value) override { return controls.accepts(setting, value); }
    int getGrabberSettingsValue(VIDEO_SETTINGS setting) override { return controls.value(setting); }
    int setGrabberSettingsValue(VIDEO_SETTINGS setting, int value, bool automatic) override {
        return controls.set(setting, value, automatic);
    }
    int setGrabberSettingsValue(VIDEO_SETTINGS setting, std::pair<int, int> range, bool automatic) override {
        return controls.setRange(setting, range, automatic);
    }
    std::pair<int, int> getGrabberSettingsRangeValue(VIDEO_SETTINGS setting) override {
        return controls.rangeValue(setting);
    }
    int getROIforAECAGC(int side, Rect& region) override { return side == 0 ? controls.region(region) : -1; }
    int setROIforAECAGC(int side, Rect region) override { return side == 0 ? controls.setRegion(region) : -1; }
    int resetROIforAECAGC(int side) override { return side == 0 ? controls.resetRegion() : -1; }

    [[nodiscard]] FrameCounters counters() const override { return frames.counters(); }

private:
    SETUP_STATE open(int& id, int width, int height, int fps, bool hdr);
    [[nodiscard]] bool fillSources(const SensorMode& mode, int fps, Capture::Setup& setup);
    SETUP_STATE startCapture(const SensorMode& mode, int fps, bool hdr);

    std::shared_ptr<VirtualBus> virtualBus;
    INPUT_TYPE chosenType;
    CameraConfig claimedCamera;
    int imageWidth = 0;
    int imageHeight = 0;
    int framesPerSecond = 0;
    FrameExchange frames;
    VirtualMcu mcu;
    SensorControls controls;
    CameraLock cameraLock;
    std::unique_ptr<Capture> openCapture;
};

}  // namespace oru::virtual_bus
