#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "backends/rlx/recording_fixture.hpp"
#include "doubles/ScopedPlatform.hpp"
#include "doubles/ScriptedFactory.hpp"

namespace oru::rlx_test {

using doubles::ScriptedClock;

/// The members of a camera that recording and playback work on, and its calls in the order of grab().
struct CameraRig {
    explicit CameraRig(const Scene& what, Clock& time, std::unique_ptr<rlxrw::RLXVideo> recorderDouble = nullptr)
        : scene(what),
          recorder(recorderDouble ? std::move(recorderDouble) : makeRlxVideo(calibration)),
          module(makePlaybackRecorder(time, calibration)) {
        EXPECT_EQ(image.alloc({scene.width, scene.height}, U8_C2, CPU), SUCCESS);
        image_size = {scene.width, scene.height};
    }
    ~CameraRig() {
        module->disableRecording(context());
        module.reset();
        image.free(CPU_AND_GPU);
    }

    CameraFrameContext context() {
        return {image,  current_timestamp, current_imu, imu_mutex, *reader,    *recorder, nullptr,
                sender, recording,         streaming,   paused,    parameters, status,    frame_buffer,
                init,   information,       image_size};
    }

    ERROR_CODE startRecording(const std::string& path, uint32_t targetFps = 0, bool overwrite = false) {
        return module->enableRecording(context(), {path, scene.mode, 0, targetFps, overwrite}, scene.header());
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
    CalibrationKeeper calibration;
    doubles::ScopedPlatform platform{std::make_shared<doubles::ScriptedFactory>()};  // the image's memory
    Mat image;
    Timestamp current_timestamp = 0;
    IMUPacket current_imu;
    Mutex imu_mutex;
    std::unique_ptr<rlxrw::RLXVideo> reader = makeRlxVideo(calibration);
    std::unique_ptr<rlxrw::RLXVideo> recorder;
    UDPOutput* sender = nullptr;
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
};

}  // namespace oru::rlx_test
