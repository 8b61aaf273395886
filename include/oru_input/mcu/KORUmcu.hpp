#pragma once

#include <vector>

#include "oru/geometry.hpp"
#include "oru_input/mcu/IMUPacket.hpp"

namespace oru {

/// The micro-controller of a live camera, which carries the IMU. Owned by the grabber and only borrowed.
/// Threads: any; every operation answers at once and none blocks on the device.
class KORUmcu {
public:
    virtual ~KORUmcu() = default;

    virtual ImuCalibration exportCalib() = 0;
    /// The newest sample; not `valid` before the first one. The camera passes 0.
    virtual IMUPacket getIMUPose(int index) = 0;
    /// The IMU-to-camera pose, translation in millimetres.
    /// Takes camera coordinates to the sensor's, its name notwithstanding; translation in millimetres.
    virtual Transform getIMUCameraTransform() = 0;
    /// The samples later than `from` and not later than `to` (nanoseconds), in the order in which they were measured.
    /// After the clock was set back, as when `from` is later than `to`: all that came since the last call, so that none
    /// is lost. Called by the thread that grabs.
    virtual std::vector<IMUPacket> getIMUPacketBatch(unsigned long from, unsigned long to) = 0;
    virtual unsigned int getMCUFirmwareVersion() = 0;
    /// The sensor device is open and delivers samples.
    virtual bool isReady() = 0;
};

}  // namespace oru
