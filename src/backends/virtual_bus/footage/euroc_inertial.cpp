#include "backends/virtual_bus/footage/euroc_inertial.hpp"

#include <Eigen/LU>
#include <algorithm>
#include <numbers>

namespace oru::virtual_bus {
namespace {

using RowMajor4 = Eigen::Matrix<double, 4, 4, Eigen::RowMajor>;

constexpr double kDegrees = 180.0 / std::numbers::pi;

}  // namespace

EurocInertial::EurocInertial(const std::string& csvPath, const EurocCamera& camera, uint64_t firstImageNs,
                             uint64_t roundNs)
    : path(csvPath), file(csvPath), originNs(firstImageNs), spanNs(roundNs) {
    const RowMajor4 cameraToBody(camera.pose.data());
    const RowMajor4 sensorToBody(camera.imu_pose.data());
    const Eigen::Isometry3d cameraToSensor(sensorToBody.inverse() * cameraToBody);
    sensorMounting.rotation = Eigen::Quaterniond(cameraToSensor.linear()).normalized();
    sensorMounting.translation = cameraToSensor.translation();
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
    const Eigen::Quaterniond& fromCamera = sensorMounting.rotation;
    const Eigen::Vector3d rate(measured.rate[0], measured.rate[1], measured.rate[2]);
    const Eigen::Vector3d force(measured.force[0], measured.force[1], measured.force[2]);
    // After a gap the rate says nothing about the time between.
    const double seconds = std::min(static_cast<double>(sample.elapsed_ns - lastElapsed) * 1e-9, 0.1);
    filter.update(fromCamera.conjugate() * rate, fromCamera.conjugate() * force, seconds);
    lastElapsed = sample.elapsed_ns;
    sample.orientation = fromCamera * filter.orientation() * fromCamera.conjugate();
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
