#include "backends/virtual_bus/footage/euroc_inertial.hpp"

#include <cmath>
#include <numbers>

namespace oru::virtual_bus {
namespace {

constexpr double kProportional = 1.0;  // rad/s per unit of error
constexpr double kIntegral = 0.05;
constexpr double kMaxBias = 0.2;  // rad/s
constexpr double kDegrees = 180.0 / std::numbers::pi;

}  // namespace

void ComplementaryFilter::update(const Eigen::Vector3d& rate, const Eigen::Vector3d& force, double seconds) {
    const double norm = force.norm();
    const Eigen::Vector3d up(0.0, -1.0, 0.0);
    if (!levelled) {
        if (norm > 0.1) {
            attitude = Eigen::Quaterniond::FromTwoVectors(force, up);
            levelled = true;
        }
        return;
    }
    Eigen::Vector3d correction = Eigen::Vector3d::Zero();
    // A strongly accelerated body does not feel the direction of gravity.
    if (std::abs(norm - kGravity) < 0.3 * kGravity) {
        const Eigen::Vector3d expected = attitude.conjugate() * up;
        const Eigen::Vector3d error = (force / norm).cross(expected);
        bias -= kIntegral * error * seconds;
        bias = bias.cwiseMax(-kMaxBias).cwiseMin(kMaxBias);
        correction = kProportional * error;
    }
    const Eigen::Vector3d angle = (rate - bias + correction) * seconds;
    if (const double size = angle.norm(); size > 0.0) {
        attitude = (attitude * Eigen::Quaterniond(Eigen::AngleAxisd(size, angle / size))).normalized();
    }
}

EurocInertial::EurocInertial(const std::string& csvPath, const EurocCamera& camera, uint64_t firstImageNs,
                             uint64_t roundNs)
    : path(csvPath), file(csvPath), originNs(firstImageNs), spanNs(roundNs) {
    Eigen::Matrix3d cameraToBody;
    Eigen::Vector3d position;
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            cameraToBody(row, column) = camera.pose[static_cast<std::size_t>(4 * row + column)];
        }
        position[row] = camera.pose[static_cast<std::size_t>(4 * row + 3)];
    }
    bodyToCamera = cameraToBody.transpose();
    sensorMounting.translation = bodyToCamera * position;
}

bool EurocInertial::readLine(EurocSample& sample) {
    std::string line;
    while (std::getline(file, line)) {
        if (parseEurocSample(line, sample) && sample.time_ns >= originNs) {
            return true;
        }
    }
    return false;
}

bool EurocInertial::readAhead() {
    EurocSample sample;
    while (!aheadValid) {
        if (!readLine(sample)) {
            if (spanNs == 0 || !any) {
                return false;
            }
            ++round;
            any = false;
            file.clear();
            file.seekg(0);
            continue;
        }
        any = true;
        const uint64_t within = sample.time_ns - originNs;
        const uint64_t elapsed = within + round * spanNs;
        const bool inRound = spanNs == 0 || within < spanNs;
        if (inRound && (latest.elapsed_ns == 0 || elapsed > lastElapsed)) {
            ahead = convert(sample);
            aheadValid = true;
        }
    }
    return true;
}

InertialSample EurocInertial::convert(const EurocSample& measured) {
    InertialSample sample;
    sample.elapsed_ns = measured.time_ns - originNs + round * spanNs;
    const Eigen::Vector3d rate = bodyToCamera * Eigen::Vector3d(measured.rate[0], measured.rate[1], measured.rate[2]);
    const Eigen::Vector3d force =
        bodyToCamera * Eigen::Vector3d(measured.force[0], measured.force[1], measured.force[2]);
    // After a gap the rate says nothing about the time between.
    const double seconds = std::min(static_cast<double>(sample.elapsed_ns - lastElapsed) * 1e-9, 0.1);
    filter.update(rate, force, seconds);
    lastElapsed = sample.elapsed_ns;
    sample.orientation = filter.orientation();
    sample.rate = rate * kDegrees;
    sample.raw_rate = sample.rate;
    sample.force = force;
    sample.raw_force = force;
    return sample;
}

bool EurocInertial::next(uint64_t until, InertialSample& sample) {
    if (!readAhead() || ahead.elapsed_ns > until) {
        return false;
    }
    sample = ahead;
    latest = ahead;
    aheadValid = false;
    return true;
}

InertialSample EurocInertial::atImage(uint64_t /*elapsed*/) {
    return latest;
}

Eigen::Vector3d EurocInertial::rateVariance() const {
    return Eigen::Vector3d::Constant(1e-2);
}
Eigen::Vector3d EurocInertial::forceVariance() const {
    return Eigen::Vector3d::Constant(1e-3);
}

}  // namespace oru::virtual_bus
