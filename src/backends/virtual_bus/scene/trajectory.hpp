#pragma once

#include <Eigen/Geometry>
#include <cstdint>

namespace oru::virtual_bus {

/// World: x right, y down, z forward, metres; gravity along +y.
inline constexpr double kGravity = 9.80665;

enum class Motion : int32_t {
    GENTLE,  ///< a hand-held camera: up to 30 degrees and 0.6 m a second
    LIVELY,  ///< about three times as fast
    REST,    ///< the camera stands still; only the scene moves
};

/// Position and attitude of the IMU with their exact derivatives.
struct MotionState {
    Eigen::Vector3d position = Eigen::Vector3d::Zero();               ///< metres, world
    Eigen::Vector3d acceleration = Eigen::Vector3d::Zero();           ///< m/s^2, world, without gravity
    Eigen::Quaterniond orientation = Eigen::Quaterniond::Identity();  ///< IMU axes to world axes
    Eigen::Vector3d angular_rate = Eigen::Vector3d::Zero();           ///< rad/s, IMU axes
};

/// Pose of the camera in the IMU's frame: camera coordinates to IMU coordinates, metres.
struct Mounting {
    Eigen::Quaterniond rotation = Eigen::Quaterniond::Identity();
    Eigen::Vector3d translation = Eigen::Vector3d::Zero();
};

/// A smooth path made of a few sines in each of the six coordinates, so that rate and acceleration are derivatives
/// and not differences.
class Trajectory {
public:
    explicit Trajectory(Motion motion, bool upsideDown = false)
        : motionPattern(motion), mountedUpsideDown(upsideDown) {}

    [[nodiscard]] MotionState at(double seconds) const;

private:
    Motion motionPattern;
    bool mountedUpsideDown;
};

/// The mounting of every virtual camera.
[[nodiscard]] Mounting factoryMounting();

/// What an ideal accelerometer reads: the specific force in IMU axes, m/s^2.
[[nodiscard]] Eigen::Vector3d specificForce(const MotionState& state);

}  // namespace oru::virtual_bus
