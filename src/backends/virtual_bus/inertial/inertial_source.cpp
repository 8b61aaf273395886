#include "backends/virtual_bus/inertial/inertial_source.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace oru::virtual_bus {
namespace {

struct Characteristics {
    double noise_density;  // unit / sqrt(Hz)
    double random_walk;    // unit * sqrt(Hz)
    double resolution;
    double range;
};

// What the camera reports about its sensors.
constexpr Characteristics kGyroscope{0.004721, 0.0038, 1000.0 / 32768.0, 1000.0};
constexpr Characteristics kAccelerometer{0.00135, 0.0042, 78.48 / 32768.0, 78.48};
constexpr double kRateHz = 400.0;
// A walk that returns to zero within minutes stays bounded however long a camera runs.
constexpr double kWalkTimeConstantS = 300.0;

double noiseDeviation(const Characteristics& sensor) {
    return sensor.noise_density * std::sqrt(kRateHz);
}

double variance(const Characteristics& sensor) {
    const double deviation = noiseDeviation(sensor);
    return deviation * deviation + sensor.resolution * sensor.resolution / 12.0;
}

Eigen::Vector3d digitise(const Eigen::Vector3d& value, const Characteristics& sensor) {
    return value.unaryExpr([&](double v) {
        return sensor.resolution * std::round(std::clamp(v, -sensor.range, sensor.range) / sensor.resolution);
    });
}

}  // namespace

TrajectoryInertial::TrajectoryInertial(const Trajectory& trajectory, uint32_t seed)
    : cameraTrajectory(trajectory),
      sensorMounting(factoryMounting()),
      noiseGenerator(seed),
      imageNoiseGenerator(seed + 1U) {
    std::mt19937 factory(seed + 2U);
    factoryRateBias = normal(factory, 0.3);
    factoryForceBias = normal(factory, 0.05);
}

bool TrajectoryInertial::next(uint64_t until, InertialSample& sample) {
    const uint64_t elapsed = nextIndex * kPeriodNs;
    if (elapsed > until) {
        return false;
    }
    ++nextIndex;
    const double stepS = 1.0 / kRateHz;
    const double keep = 1.0 - stepS / kWalkTimeConstantS;
    rateWalk = keep * rateWalk + normal(noiseGenerator, kGyroscope.random_walk * std::sqrt(stepS));
    forceWalk = keep * forceWalk + normal(noiseGenerator, kAccelerometer.random_walk * std::sqrt(stepS));
    sample = measure(elapsed, noiseGenerator);
    return true;
}

InertialSample TrajectoryInertial::atImage(uint64_t elapsed) {
    return measure(elapsed, imageNoiseGenerator);
}

InertialSample TrajectoryInertial::measure(uint64_t elapsed, std::mt19937& random) {
    const MotionState state = cameraTrajectory.at(static_cast<double>(elapsed) * 1e-9);
    InertialSample sample;
    sample.elapsed_ns = elapsed;
    sample.orientation = state.orientation;
    sample.height = -state.position.y();
    const Eigen::Vector3d rate =
        state.angular_rate * (180.0 / std::numbers::pi) + rateWalk + normal(random, noiseDeviation(kGyroscope));
    const Eigen::Vector3d force = specificForce(state) + forceWalk + normal(random, noiseDeviation(kAccelerometer));
    sample.raw_rate = digitise(rate + factoryRateBias, kGyroscope);
    sample.raw_force = digitise(force + factoryForceBias, kAccelerometer);
    sample.rate = sample.raw_rate - factoryRateBias;
    sample.force = sample.raw_force - factoryForceBias;
    return sample;
}

Eigen::Vector3d TrajectoryInertial::normal(std::mt19937& random, double deviation) {
    const double x = unitNormal(random);
    const double y = unitNormal(random);
    const double z = unitNormal(random);
    return deviation * Eigen::Vector3d(x, y, z);
}

ImuCalibration TrajectoryInertial::calibration() const {
    ImuCalibration calibration;
    for (int axis = 0; axis < 3; ++axis) {
        calibration.values[static_cast<std::size_t>(axis)] = static_cast<float>(factoryRateBias[axis]);
        calibration.values[static_cast<std::size_t>(18 + axis)] = static_cast<float>(factoryForceBias[axis]);
    }
    return calibration;
}

Eigen::Vector3d TrajectoryInertial::rateVariance() const {
    return Eigen::Vector3d::Constant(variance(kGyroscope));
}

Eigen::Vector3d TrajectoryInertial::forceVariance() const {
    return Eigen::Vector3d::Constant(variance(kAccelerometer));
}

}  // namespace oru::virtual_bus
