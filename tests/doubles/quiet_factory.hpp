#pragma once

#include <vector>

#include "collaborators/CollaboratorFactory.hpp"
#include "doubles/HostMemoryGpu.hpp"

namespace oru::doubles {

// Collaborators that only answer, without scripts and logs: for counting allocations and for timing the camera itself.

class QuietMcu final : public KORUmcu {
public:
    ImuCalibration exportCalib() override { return {}; }
    IMUPacket getIMUPose(int) override { return sample(1); }
    Transform getIMUCameraTransform() override { return {}; }
    std::vector<IMUPacket> getIMUPacketBatch(unsigned long, unsigned long to) override {
        return std::vector<IMUPacket>(13, sample(to));
    }
    unsigned int getMCUFirmwareVersion() override { return 1; }
    bool isReady() override { return true; }

    static IMUPacket sample(uint64_t time) {
        IMUPacket packet;
        packet.valid = true;
        packet.imu_timestamp = time;
        packet.orientation[3] = 1.0F;
        return packet;
    }
};

class QuietGrabber final : public LiveCameraGrabber {
public:
    void setInputType(INPUT_TYPE) override {}
    [[nodiscard]] INPUT_TYPE inputType() const override { return GMSL; }
    void setMonoCapture(bool) override {}
    SETUP_STATE setUp(int&, int width, int height, int fps, int, bool, IMU_FREQ, bool, bool) override {
        imageWidth = width;
        imageHeight = height;
        rate = fps;
        pixels.assign(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 2, 0x80);
        return SETUP_OK;
    }
    int getEffectiveWidth() override { return imageWidth; }
    int getEffectiveHeight() override { return imageHeight; }
    MODEL getCameraModel() override { return MODEL_MONO_3UM; }
    int getSerialNumber() override { return 30010001; }
    int getFWVersion() override { return 1; }
    int getRequestedFPS() override { return rate; }
    void endSetup(unsigned char*) override {}
    bool hasMCU() override { return true; }
    KORUmcu* getMCU() override { return &mcu; }
    int waitForNewFrame(int) override { return 0; }
    FrameStatus getFrameStatus() override { return NEW_FRAME; }
    void enterCriticalSection() override {}
    void exitCriticalSection() override {}
    unsigned char* getPixels() override { return pixels.data(); }
    Timestamp getTimeStamp() override { return time; }
    const IMUPacket* getIMUPacket() override { return &packet; }
    void afterGrab() override { time += 33'333'333; }
    void close(bool) override {}
    bool getVideoSettingRange(VIDEO_SETTINGS, int&, int&) override { return false; }
    bool valueInRange(VIDEO_SETTINGS, int) override { return true; }
    int getGrabberSettingsValue(VIDEO_SETTINGS) override { return 0; }
    int setGrabberSettingsValue(VIDEO_SETTINGS, int, bool) override { return 0; }
    int setGrabberSettingsValue(VIDEO_SETTINGS, std::pair<int, int>, bool) override { return 0; }
    std::pair<int, int> getGrabberSettingsRangeValue(VIDEO_SETTINGS) override { return {}; }
    int getROIforAECAGC(int, Rect&) override { return 0; }
    int setROIforAECAGC(int, Rect) override { return 0; }
    int resetROIforAECAGC(int) override { return 0; }
    [[nodiscard]] FrameCounters counters() const override { return {}; }

private:
    QuietMcu mcu;
    std::vector<unsigned char> pixels;
    IMUPacket packet = QuietMcu::sample(1);
    Timestamp time = 1'000'000'000;
    int imageWidth = 0;
    int imageHeight = 0;
    int rate = 0;
};

class QuietRectifier final : public MonoRectifier {
public:
    CameraParameters setup(CameraParameters& raw, CUstream_st*, bool) override { return raw; }
    void process(Mat&, CUstream_st*) override {}
    int getView(VIEW, Resolution, Mat&, MEM, CUstream_st*) override { return 0; }
    void free() override {}
};

class QuietGpu final : public HostMemoryGpu {
public:
    int cudaSetDevice(int) override { return 0; }
    int cuCtxGetCurrent(CUctx_st**) override { return 0; }
    int cuCtxCreate_v2(CUctx_st**, unsigned, int) override { return 0; }
    int cudaStreamCreate(CUstream_st**) override { return 0; }
    int cudaStreamDestroy(CUstream_st*) override { return 0; }
    int cudaStreamSynchronize(CUstream_st*) override { return 0; }
};

class QuietDirectory final : public DeviceDirectory {
public:
    std::vector<DeviceProperties> getGMSLDevices(bool, bool) override { return {}; }
    std::vector<DeviceProperties> getGrabberList(bool) override { return {}; }
    ERROR_CODE resetMCU(int) override { return SUCCESS; }
};

class QuietCalibration final : public CalibrationSource {
public:
    bool downloadCalibFile(String, int) override { return false; }
};

class QuietFactory final : public CollaboratorFactory {
public:
    explicit QuietFactory(std::unique_ptr<GpuRuntime> runtime = std::make_unique<QuietGpu>())
        : gpuRuntime(std::move(runtime)) {}

    std::unique_ptr<LiveCameraGrabber> makeGrabber(INPUT_TYPE) override { return std::make_unique<QuietGrabber>(); }
    std::unique_ptr<rlxrw::RLXVideo> makeRlxVideo(RlxRole) override { return nullptr; }
    std::unique_ptr<UDPInput> makeStreamInput(bool) override { return nullptr; }
    std::unique_ptr<UDPOutput> makeStreamOutput(STREAMING_MODE, bool) override { return nullptr; }
    std::unique_ptr<MonoRectifier> makeRectifier() override { return std::make_unique<QuietRectifier>(); }
    std::unique_ptr<PlaybackRecorder> makePlaybackRecorder() override { return nullptr; }
    DeviceDirectory& devices() override { return directory; }
    CalibrationSource& calibration() override { return calibrationSource; }
    GpuRuntime& gpu() override { return *gpuRuntime; }
    Clock& clock() override { return *systemClock; }

private:
    QuietDirectory directory;
    QuietCalibration calibrationSource;
    std::unique_ptr<GpuRuntime> gpuRuntime;
    std::unique_ptr<Clock> systemClock = makeSystemClock();
};

}  // namespace oru::doubles
