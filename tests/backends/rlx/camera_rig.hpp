#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "backends/gpu/host/host_gpu_runtime.hpp"
#include "backends/rlx/recording_fixture.hpp"
#include "collaborators/CollaboratorFactory.hpp"

namespace oru::rlx_test {

/// Time that passes only when someone sleeps.
class SteppedClock final : public Clock {
public:
    uint64_t systemNanoseconds() override { return now; }
    uint64_t monotonicNanoseconds() override { return now; }
    int nanosleep(const timespec& duration, timespec* /*rest*/) override {
        now += static_cast<uint64_t>(duration.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(duration.tv_nsec);
        return 0;
    }
    std::atomic<uint64_t> now{1'000'000'000};
};

/// A platform that gives a Mat its memory, and nothing else.
class MemoryOnly final : public CollaboratorFactory {
public:
    std::unique_ptr<LiveCameraGrabber> makeGrabber(INPUT_TYPE /*type*/) override { return nullptr; }
    std::unique_ptr<rlxrw::RLXVideo> makeRlxVideo(RlxRole /*role*/) override { return nullptr; }
    std::unique_ptr<UDPInput> makeStreamInput(bool /*verbose*/) override { return nullptr; }
    std::unique_ptr<UDPOutput> makeStreamOutput(STREAMING_MODE /*mode*/, bool /*verbose*/) override { return nullptr; }
    std::unique_ptr<MonoRectifier> makeRectifier() override { return nullptr; }
    std::unique_ptr<PlaybackRecorder> makePlaybackRecorder() override { return nullptr; }
    DeviceDirectory& devices() override { std::abort(); }
    CalibrationSource& calibration() override { return keptCalibration; }
    GpuRuntime& gpu() override { return *gpuRuntime; }
    Clock& clock() override { return steppedClock; }

private:
    KeptCalibration keptCalibration;
    SteppedClock steppedClock;
    std::unique_ptr<GpuRuntime> gpuRuntime = makeHostGpuRuntime();
};

/// Keeps what it was given.
class SenderLog final : public UDPOutput {
public:
    int open(UDPOutConfig /*configuration*/) override { return 0; }
    void setGrabber(LiveCameraGrabber* /*grabber*/) override {}
    void asyncingestYUVFrame(unsigned char* pixels, Timestamp time, rlxrw::rlxSampleMetadata metadata,
                             int size) override {
        images.emplace_back(pixels, pixels + size);
        times.push_back(time);
        last_metadata = metadata;
    }
    void waitingestYUVFrameProcessing() override { ++waits; }
    void noteSkippedFrame() override { ++skipped; }
    void ingestIMU(IMUPacket /*packet*/) override {}
    bool isBusy() const override { return busy; }
    bool isRunning() const override { return true; }
    bool carriesImu() const override { return false; }
    FrameCounters counters() const override { return {}; }

    std::vector<std::vector<unsigned char>> images;
    std::vector<Timestamp> times;
    rlxrw::rlxSampleMetadata last_metadata{};
    int waits = 0;
    int skipped = 0;
    bool busy = false;
};

/// The members of a camera that recording and playback work on, and its calls in the order of grab().
struct CameraRig {
    explicit CameraRig(const Scene& what, Clock& time, std::unique_ptr<rlxrw::RLXVideo> recorderDouble = nullptr)
        : scene(what),
          recorder(recorderDouble ? std::move(recorderDouble) : makeRlxVideo(calibration)),
          module(makePlaybackRecorder(time, calibration)) {
        previousFactory = CollaboratorFactory::setProcessDefault(std::make_shared<MemoryOnly>());
        EXPECT_EQ(image.alloc({scene.width, scene.height}, U8_C2, CPU), SUCCESS);
        image_size = {scene.width, scene.height};
    }
    ~CameraRig() {
        module->disableRecording(context());
        module.reset();
        image.free(CPU_AND_GPU);
        CollaboratorFactory::setProcessDefault(previousFactory);
    }

    CameraFrameContext context() {
        return {image,  current_timestamp, current_imu, imu_mutex, *reader,    *recorder, nullptr,
                sender, recording,         streaming,   paused,    parameters, status,    frame_buffer,
                init,   information,       image_size};
    }

    ERROR_CODE startRecording(const std::string& path, uint32_t target_fps = 0, bool overwrite = false) {
        return module->enableRecording(context(), {path, scene.mode, 0, target_fps, overwrite}, scene.header());
    }

    int openFile(const std::string& path) {
        init.input.setFromFile(path);
        const int result = reader->open(path.c_str());
        reader->setPosition(3);
        reader->setPosition(0);
        return result;
    }

    /// What a grab() of a live camera does with frame `number`.
    void grabLive(uint64_t number) {
        const std::vector<unsigned char> pixels = scene.image(number);
        std::copy(pixels.begin(), pixels.end(), image.getPtr<unsigned char>(CPU));
        current_timestamp = scene.time(number);
        current_imu = scene.imu(number);
        if (recording) {
            std::copy(pixels.begin(), pixels.end(), frame_buffer);
        }
        finishGrab(scene.packets(number));
    }

    FrameStatus grabFile() {
        const FrameStatus grabStatus = module->nextImageOfRLX(context(), false);
        if (grabStatus == NEW_FRAME) {
            finishGrab(reader->getFrameIMUPackets());
        }
        return grabStatus;
    }

    void finishGrab(const std::vector<IMUPacket>& packets) {
        if (recording) {
            for (const IMUPacket& packet : packets) {
                recorder->writeCurrentIMU(packet);
            }
        }
        if (recording || sender != nullptr) {
            module->handleRLXFrameRecording(context());
        }
    }

    std::vector<unsigned char> pixels() const {
        const auto* bytes = image.getPtr<unsigned char>(CPU);
        return {bytes, bytes + std::size_t{scene.width} * scene.height * 2};
    }

    Scene scene;
    KeptCalibration calibration;
    Mat image;
    Timestamp current_timestamp = 0;
    IMUPacket current_imu;
    Mutex imu_mutex;
    std::unique_ptr<rlxrw::RLXVideo> reader = makeRlxVideo(calibration);
    std::unique_ptr<rlxrw::RLXVideo> recorder;
    SenderLog* sender = nullptr;
    std::atomic<bool> recording{false};
    std::atomic<bool> streaming{false};
    std::atomic<bool> paused{false};
    RecordingParameters parameters;
    RecordingStatus status;
    unsigned char* frame_buffer = nullptr;
    InitParametersOne init;
    CameraDescription information;
    Resolution image_size;
    std::unique_ptr<PlaybackRecorder> module;

private:
    std::shared_ptr<CollaboratorFactory> previousFactory;
};

}  // namespace oru::rlx_test
