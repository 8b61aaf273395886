#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <Eigen/Geometry>
#include <array>
#include <memory>
#include <optional>
#include <string>

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

/// A bus on the real clocks with one grabber, as a camera would use it.
struct BusRig {
    explicit BusRig(const std::string& setting = "")
        : clock(makeSystemClock()),
          bus(makeVirtualBus(*clock, &calibrations, setting)),
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

    /// Degrees between the pose change of two packets and the integral of the rate between them, in camera axes.
    double integrationError(const IMUPacket& start, const IMUPacket& end) {
        const auto toQuaternion = [](const std::array<float, 4>& q) {
            return Eigen::Quaterniond(static_cast<double>(q[3]), static_cast<double>(q[0]), static_cast<double>(q[1]),
                                      static_cast<double>(q[2]));
        };
        const Transform mounting = grabber->getMCU()->getIMUCameraTransform();
        Eigen::Matrix3d camera_to_imu;
        for (int row = 0; row < 3; ++row) {
            for (int column = 0; column < 3; ++column) {
                camera_to_imu(row, column) =
                    static_cast<double>(mounting(static_cast<std::size_t>(row), static_cast<std::size_t>(column)));
            }
        }
        Eigen::Quaterniond turned = Eigen::Quaterniond::Identity();
        uint64_t reached = start.imu_timestamp;
        for (const IMUPacket& packet : grabber->getMCU()->getIMUPacketBatch(start.imu_timestamp, end.imu_timestamp)) {
            const Eigen::Vector3d rate(static_cast<double>(packet.vector_3[0]), static_cast<double>(packet.vector_3[1]),
                                       static_cast<double>(packet.vector_3[2]));
            const Eigen::Vector3d angle =
                camera_to_imu * rate * (static_cast<double>(packet.imu_timestamp - reached) * 1e-9 * kRadians);
            turned = turned * Eigen::Quaterniond(Eigen::AngleAxisd(angle.norm(), angle.normalized()));
            reached = packet.imu_timestamp;
        }
        const Eigen::Quaterniond change = toQuaternion(start.orientation).conjugate() * toQuaternion(end.orientation);
        return change.angularDistance(turned) / kRadians;
    }

    std::unique_ptr<Clock> clock;
    doubles::CalibrationKeeper calibrations;
    std::shared_ptr<VirtualBus> bus;
    std::unique_ptr<DeviceDirectory> directory;
    std::unique_ptr<LiveCameraGrabber> grabber;
    Timestamp time = 0;
    const unsigned char* pixels = nullptr;  // valid until the next take()
};

}  // namespace oru::virtual_bus
