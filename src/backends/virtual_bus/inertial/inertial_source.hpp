#pragma once

#include <Eigen/Geometry>
#include <cstdint>
#include <random>

#include "backends/virtual_bus/scene/trajectory.hpp"
#include "oru_input/mcu/IMUPacket.hpp"

namespace oru::virtual_bus {

/// One sample of the inertial sensors. Vectors along the IMU's axes: degrees per second and m/s^2.
struct InertialSample {
    uint64_t elapsed_ns = 0;
    Eigen::Quaterniond orientation = Eigen::Quaterniond::Identity();  ///< IMU axes to its world
    Eigen::Vector3d rate = Eigen::Vector3d::Zero();                   ///< factory calibration applied
    Eigen::Vector3d force = Eigen::Vector3d::Zero();
    Eigen::Vector3d raw_rate = Eigen::Vector3d::Zero();  ///< as the sensor measured
    Eigen::Vector3d raw_force = Eigen::Vector3d::Zero();
    double height = 0.0;  ///< metres above the start
};

/// Where the micro-controller's samples come from. One thread at a time.
class InertialSource {
public:
    virtual ~InertialSource() = default;

    /// The next sample not later than `until`; false when there is none yet. Samples come in time order, each once.
    virtual bool next(uint64_t until, InertialSample& sample) = 0;
    /// The sample that belongs to an image.
    virtual InertialSample atImage(uint64_t elapsed) = 0;
    [[nodiscard]] virtual Mounting mounting() const = 0;
    /// From the world of `orientation` to one whose axes are right, down, forward.
    [[nodiscard]] virtual Eigen::Quaterniond worldToLevel() const { return Eigen::Quaterniond::Identity(); }
    [[nodiscard]] virtual ImuCalibration calibration() const = 0;
    /// Variance of one sample along each axis: (deg/s)^2 and (m/s^2)^2.
    [[nodiscard]] virtual Eigen::Vector3d rateVariance() const = 0;
    [[nodiscard]] virtual Eigen::Vector3d forceVariance() const = 0;
};

/// Samples of a trajectory at exactly 400 Hz. To the true rate and force it adds, as the sensor characteristics say, a
/// factory bias (removed again by the calibration), a random-walk bias (not removed) and white noise; then it limits to
/// the range and rounds to the resolution.
class TrajectoryInertial final : public InertialSource {
public:
    static constexpr uint64_t kPeriodNs = 2'500'000;

    TrajectoryInertial(const Trajectory& trajectory, uint32_t seed);

    bool next(uint64_t until, InertialSample& sample) override;
    InertialSample atImage(uint64_t elapsed) override;
    [[nodiscard]] Mounting mounting() const override { return sensorMounting; }
    [[nodiscard]] ImuCalibration calibration() const override;
    [[nodiscard]] Eigen::Vector3d rateVariance() const override;
    [[nodiscard]] Eigen::Vector3d forceVariance() const override;

private:
    InertialSample measure(uint64_t elapsed, std::mt19937& random);
    Eigen::Vector3d normal(std::mt19937& random, double deviation);

    Trajectory cameraTrajectory;
    Mounting sensorMounting;
    // Two generators, so that the train of samples does not depend on how many images are taken.
    std::mt19937 noiseGenerator;
    std::mt19937 imageNoiseGenerator;
    std::normal_distribution<double> unitNormal;
    Eigen::Vector3d factoryRateBias;
    Eigen::Vector3d factoryForceBias;
    Eigen::Vector3d rateWalk = Eigen::Vector3d::Zero();
    Eigen::Vector3d forceWalk = Eigen::Vector3d::Zero();
    uint64_t nextIndex = 0;
};

}  // namespace oru::virtual_bus
