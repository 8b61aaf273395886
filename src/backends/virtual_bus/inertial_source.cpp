#include "backends/virtual_bus/inertial_source.hpp"

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
    : trajectory_(trajectory), mounting_(factoryMounting()), random_(seed), picture_random_(seed + 1U) {
    std::mt19937 factory(seed + 2U);
    factory_rate_bias_ = normal(factory, 0.3);
    factory_force_bias_ = normal(factory, 0.05);
}

bool TrajectoryInertial::next(uint64_t until, InertialSample& sample) {
    const uint64_t elapsed = index_ * kPeriodNs;
    if (elapsed > until) {
        return false;
    }
    ++index_;
    const double step_s = 1.0 / kRateHz;
    const double keep = 1.0 - step_s / kWalkTimeConstantS;
    rate_walk_ = keep * rate_walk_ + normal(random_, kGyroscope.random_walk * std::sqrt(step_s));
    force_walk_ = keep * force_walk_ + normal(random_, kAccelerometer.random_walk * std::sqrt(step_s));
    sample = measure(elapsed, random_);
    return true;
}

InertialSample TrajectoryInertial::atPicture(uint64_t elapsed) {
    return measure(elapsed, picture_random_);
}

InertialSample TrajectoryInertial::measure(uint64_t elapsed, std::mt19937& random) {
    const MotionState state = trajectory_.at(static_cast<double>(elapsed) * 1e-9);
    InertialSample sample;
    sample.elapsed_ns = elapsed;
    sample.orientation = state.orientation;
    sample.height = -state.position.y();
    const Eigen::Vector3d rate =
        state.angular_rate * (180.0 / std::numbers::pi) + rate_walk_ + normal(random, noiseDeviation(kGyroscope));
    const Eigen::Vector3d force = specificForce(state) + force_walk_ + normal(random, noiseDeviation(kAccelerometer));
    sample.raw_rate = digitise(rate + factory_rate_bias_, kGyroscope);
    sample.raw_force = digitise(force + factory_force_bias_, kAccelerometer);
    sample.rate = sample.raw_rate - factory_rate_bias_;
    sample.force = sample.raw_force - factory_force_bias_;
    return sample;
}

Eigen::Vector3d TrajectoryInertial::normal(std::mt19937& random, double deviation) {
    const double x = unit_normal_(random);
    const double y = unit_normal_(random);
    const double z = unit_normal_(random);
    return deviation * Eigen::Vector3d(x, y, z);
}

ImuCalibration TrajectoryInertial::calibration() const {
    ImuCalibration calibration;
    for (int axis = 0; axis < 3; ++axis) {
        calibration.values[static_cast<std::size_t>(axis)] = static_cast<float>(factory_rate_bias_[axis]);
        calibration.values[static_cast<std::size_t>(18 + axis)] = static_cast<float>(factory_force_bias_[axis]);
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
