#pragma once

#include <memory>

#include "backends/virtual_bus/bus.hpp"
#include "backends/virtual_bus/capture.hpp"
#include "backends/virtual_bus/frame_exchange.hpp"
#include "backends/virtual_bus/sensor_modes.hpp"
#include "backends/virtual_bus/virtual_mcu.hpp"

namespace oru::virtual_bus {

/// One camera of the virtual bus behind the grabber's contract.
class VirtualGrabber final : public LiveCameraGrabber {
public:
    VirtualGrabber(std::shared_ptr<VirtualBus> bus, INPUT_TYPE type);
    ~VirtualGrabber() override;

    void setInputType(INPUT_TYPE type) override { type_ = type; }
    [[nodiscard]] INPUT_TYPE inputType() const override { return type_; }
    void setMonoCapture(bool /*mono*/) override {}
    SETUP_STATE setUp(int& id, int width, int height, int fps, int option, bool, IMU_FREQ frequency, bool,
                      bool hdr) override;
    int getEffectiveWidth() override { return width_; }
    int getEffectiveHeight() override { return height_; }
    MODEL getCameraModel() override { return camera_.model; }
    int getSerialNumber() override { return static_cast<int>(camera_.serial); }
    int getFWVersion() override { return camera_.firmware; }
    int getRequestedFPS() override { return fps_; }
    void endSetup(unsigned char* /*unused*/) override {}
    bool hasMCU() override { return mcu_.present(); }
    KORUmcu* getMCU() override { return &mcu_; }

    int waitForNewFrame(int milliseconds) override;
    FrameStatus getFrameStatus() override;
    void enterCriticalSection() override { frames_.latch(); }
    void exitCriticalSection() override {}
    unsigned char* getPixels() override;
    Timestamp getTimeStamp() override;
    const IMUPacket* getIMUPacket() override;
    void afterGrab() override { frames_.taken(); }
    void close(bool wait) override;

    bool getVideoSettingRange(VIDEO_SETTINGS setting, int& min, int& max) override {
        return controls_.range(setting, min, max);
    }
    bool valueInRange(VIDEO_SETTINGS setting, int value) override { return controls_.accepts(setting, value); }
    int getGrabberSettingsValue(VIDEO_SETTINGS setting) override { return controls_.value(setting); }
    int setGrabberSettingsValue(VIDEO_SETTINGS setting, int value, bool automatic) override {
        return controls_.set(setting, value, automatic);
    }
    int setGrabberSettingsValue(VIDEO_SETTINGS setting, std::pair<int, int> range, bool automatic) override {
        return controls_.setRange(setting, range, automatic);
    }
    std::pair<int, int> getGrabberSettingsRangeValue(VIDEO_SETTINGS setting) override {
        return controls_.rangeValue(setting);
    }
    int getROIforAECAGC(int side, Rect& region) override { return side == 0 ? controls_.region(region) : -1; }
    int setROIforAECAGC(int side, Rect region) override { return side == 0 ? controls_.setRegion(region) : -1; }
    int resetROIforAECAGC(int side) override { return side == 0 ? controls_.resetRegion() : -1; }

    [[nodiscard]] FrameCounters counters() const override { return frames_.counters(); }

private:
    [[nodiscard]] bool fillSources(const SensorMode& mode, int fps, Capture::Setup& setup);
    SETUP_STATE startCapture(const SensorMode& mode, int fps, bool hdr);

    std::shared_ptr<VirtualBus> bus_;
    INPUT_TYPE type_;
    CameraConfig camera_;
    int width_ = 0;
    int height_ = 0;
    int fps_ = 0;
    FrameExchange frames_;
    VirtualMcu mcu_;
    SensorControls controls_;
    CameraLock lock_;
    std::unique_ptr<Capture> capture_;
};

}  // namespace oru::virtual_bus
