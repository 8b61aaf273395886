#include "backends/virtual_bus/footage/euroc_inertial.hpp"

#include <algorithm>
#include <numbers>

namespace oru::virtual_bus {
namespace {

constexpr double kDegrees = 180.0 / std::numbers::pi;

}  // namespace

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
