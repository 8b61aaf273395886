#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <Eigen/Geometry>
#include <array>
#include <memory>
#include <optional>
#include <string>

#include "backends/virtual_bus/footage/FootageDecoder.hpp"
#include "backends/virtual_bus/virtual_bus_factory.hpp"
#include "doubles/CalibrationKeeper.hpp"
#include "doubles/TemporaryDirectory.hpp"

namespace oru::virtual_bus {

inline constexpr double kRadians = 3.14159265358979323846 / 180.0;

/// Camera locks in a directory of this process's own, so that test programs may run side by side.
inline bool ownLocks() {
    static const doubles::TemporaryDirectory directory;
    return ::setenv("KORU_VIRTUAL_BUS_LOCKS", directory.path("").c_str(), 1) == 0;
}
inline const bool kOwnLocks = ownLocks();

inline FootageDecoder& footageDecoder() {
    static const std::unique_ptr<FootageDecoder> decoder = makeFootageDecoder();
    return *decoder;
}

/// A bus on the real clocks with one grabber, as a camera would use it.
struct BusRig {
    explicit BusRig(const std::string& setting = "")
        : clock(makeSystemClock()),
          bus(makeVirtualBus(*clock, &calibrations, footageDecoder(), setting)),
          directory(makeVirtualDirectory(bus)),
          grabber(makeVirtualGrabber(bus, INPUT_TYPE_PENDING)) {}

    SETUP_STATE open(int& id, int width = 960, int height = 600, int fps = 60, bool hdr = false) {
        return grabber->setUp(id, width, height, fps, 0, false, IMU_FREQ_2, true, hdr);
    }
    SETUP_STATE open() {
        int id = 0;
        return open(id);
    }

    /// One attempt as the camera makes it; NEW_FRAME when a frame was taken.
    FrameStatus take() {
        (void)grabber->waitForNewFrame(100);
        const FrameStatus status = grabber->getFrameStatus();
        if (status == NEW_FRAME) {
            grabber->enterCriticalSection();
            time = grabber->getTimeStamp();
            pixels = grabber->getPixels();
            grabber->afterGrab();
            grabber->exitCriticalSection();
        }
        return status;
    }

    /// Attempts until a frame is taken, for at most ten seconds.
    bool takeFrame() {
        for (int attempt = 0; attempt < 100; ++attempt) {
            if (take() == NEW_FRAME) {
                return true;
            }
        }
        return false;
    }

    bool hasMcu() { return grabber->hasMCU(); }

    std::unique_ptr<Clock> clock;
    doubles::CalibrationKeeper calibrations;
    std::shared_ptr<VirtualBus> bus;
    std::unique_ptr<DeviceDirectory> directory;
    std::unique_ptr<LiveCameraGrabber> grabber;
    Timestamp time = 0;
    const unsigned char* pixels = nullptr;  // valid until the next take()
};

}  // namespace oru::virtual_bus
