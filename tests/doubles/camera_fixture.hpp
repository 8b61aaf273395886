#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "calibration/readers.hpp"
#include "doubles/LogCapture.hpp"
#include "doubles/ScopedEnvironment.hpp"
#include "doubles/ScopedPlatform.hpp"
#include "doubles/ScriptedFactory.hpp"
#include "doubles/SettingsRoot.hpp"
#include "doubles/TemporaryDirectory.hpp"
#include "oru_koruone/CameraOneImpl.hpp"

namespace oru {

/// The door to a camera's members for tests.
struct CameraOneImplTestAccess {
    CameraOneImpl& camera;

    [[nodiscard]] auto& image() { return camera.image; }
    [[nodiscard]] auto& imageSize() { return camera.imageSize; }
    [[nodiscard]] auto& cameraFps() { return camera.cameraFps; }
    [[nodiscard]] auto& resolution() { return camera.resolution; }
    [[nodiscard]] auto& inputMode() { return camera.inputMode; }
    [[nodiscard]] auto& opened() { return camera.opened; }
    [[nodiscard]] auto& grabber() { return camera.grabber; }
    [[nodiscard]] auto& grabMutex() { return camera.grabMutex; }
    [[nodiscard]] auto& outputMutex() { return camera.outputMutex; }
    [[nodiscard]] auto& imuMutex() { return camera.imuMutex; }
    [[nodiscard]] auto& inspector() { return camera.frameRateInspector; }
    [[nodiscard]] auto& recordingEnabled() { return camera.recordingEnabled; }
    [[nodiscard]] auto& recordingFrameBuffer() { return camera.recordingFrameBuffer; }
    [[nodiscard]] auto& sharpnessFactor() { return camera.sharpnessFactor; }
    [[nodiscard]] auto& settingsCache() { return camera.settingsCache; }
    [[nodiscard]] auto& cameraModel() { return camera.cameraModel; }
    [[nodiscard]] auto& imageFlipped() { return camera.imageFlipped; }
    [[nodiscard]] auto& imuSource() { return camera.imuSource; }
    [[nodiscard]] auto& information() { return camera.cameraInformation; }
    [[nodiscard]] auto& imuCalibration() { return camera.imuCalibration; }
    [[nodiscard]] const IMUPacket& currentImu() ORU_NO_THREAD_SAFETY_ANALYSIS { return camera.currentImu; }
    void checkRequestedFps(INPUT_TYPE type) { camera.CheckRequestedFPS(false, type); }
    [[nodiscard]] FrameStatus nextImage() { return camera.nextImage(false); }
};

namespace doubles {

inline constexpr const char* kCalibrationOfFamily1 = R"([MISC]
Sensor_ID = 1
[CAM_fhd]
fx = 1100
fy = 1100
cx = 960
cy = 540
[CAM_fhd1200]
fx = 1000
fy = 1001
cx = 950.5
cy = 610
k1 = 0.5
[CAM_svga]
fx = 500
fy = 500
cx = 480
cy = 300
[DISTO]
k1 = 0.1
k2 = -0.2
p1 = 0.001
s4 = 0.004
)";

inline constexpr const char* kCalibrationOfFamily2 = R"([MISC]
Sensor_ID = 2
[CAM_fhd]
fx = 1000
fy = 1000
cx = 960
cy = 540
[CAM_fhd1200]
fx = 1000
fy = 1000
cx = 960
cy = 600
[CAM_4k]
fx = 2000
fy = 2000
cx = 1920
cy = 1080
[DISTO]
k1 = 0
)";

/// A camera among scripted collaborators, with a settings directory of its own that holds the cameras' calibrations.
class CameraTest : public ::testing::Test {
protected:
    CameraTest() {
        writeCalibration(30010001, kCalibrationOfFamily1);
        writeCalibration(31020002, kCalibrationOfFamily2);
        parameters.settings_path = settings().c_str();
    }

    [[nodiscard]] std::string settings() const { return directory.prefix(); }
    [[nodiscard]] std::string calibrationPath(int serial) const { return directory.path(calibrationFileName(serial)); }
    void writeCalibration(int serial, const std::string& text) const {
        (void)directory.write(calibrationFileName(serial), text);
    }
    [[nodiscard]] ERROR_CODE openLive() { return camera->open(parameters); }
    [[nodiscard]] ERROR_CODE openFile(const char* path = "/recordings/a.rlx2") {
        parameters.input.setFromFile(path);
        return camera->open(parameters);
    }
    [[nodiscard]] ERROR_CODE openStream(const char* address = "10.0.0.7:30010") {
        parameters.input = InputType(KIND_STREAM, address, "", true);
        return camera->open(parameters);
    }
    [[nodiscard]] bool everyMutexIsFree() {
        for (Mutex* mutex : {&inside.grabMutex(), &inside.outputMutex(), &inside.imuMutex()}) {
            if (!mutex->try_lock()) {
                return false;
            }
            mutex->unlock();
        }
        return true;
    }

    std::shared_ptr<ScriptedFactory> factory = std::make_shared<ScriptedFactory>();
    CallLog& calls = factory->log;
    InitParametersOne parameters;

private:
    TemporaryDirectory directory;
    SettingsRoot root{directory.path("system")};
    ScopedPlatform platform{factory};

protected:
    LogCapture logged;
    std::unique_ptr<CameraOneImpl> camera = std::make_unique<CameraOneImpl>(factory);
    CameraOneImplTestAccess inside{*camera};
};

}  // namespace doubles
}  // namespace oru
