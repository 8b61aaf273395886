#include "backends/virtual_bus/euroc_inertial.hpp"

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
    if (!levelled_) {
        if (norm > 0.1) {
            orientation_ = Eigen::Quaterniond::FromTwoVectors(force, up);
            levelled_ = true;
        }
        return;
    }
    Eigen::Vector3d correction = Eigen::Vector3d::Zero();
    // A strongly accelerated body does not feel the direction of gravity.
    if (std::abs(norm - kGravity) < 0.3 * kGravity) {
        const Eigen::Vector3d expected = orientation_.conjugate() * up;
        const Eigen::Vector3d error = (force / norm).cross(expected);
        bias_ -= kIntegral * error * seconds;
        bias_ = bias_.cwiseMax(-kMaxBias).cwiseMin(kMaxBias);
        correction = kProportional * error;
    }
    const Eigen::Vector3d angle = (rate - bias_ + correction) * seconds;
    if (const double size = angle.norm(); size > 0.0) {
        orientation_ = (orientation_ * Eigen::Quaterniond(Eigen::AngleAxisd(size, angle / size))).normalized();
    }
}

EurocInertial::EurocInertial(const std::string& csv_path, const EurocCamera& camera, uint64_t origin_ns,
                             uint64_t span_ns)
    : path_(csv_path), file_(csv_path), origin_ns_(origin_ns), span_ns_(span_ns) {
    Eigen::Matrix3d camera_to_body;
    Eigen::Vector3d position;
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            camera_to_body(row, column) = camera.pose[static_cast<std::size_t>(4 * row + column)];
        }
        position[row] = camera.pose[static_cast<std::size_t>(4 * row + 3)];
    }
    body_to_camera_ = camera_to_body.transpose();
    mounting_.translation = body_to_camera_ * position;
}

bool EurocInertial::readLine(EurocSample& sample) {
    std::string line;
    while (std::getline(file_, line)) {
        if (parseEurocSample(line, sample) && sample.time_ns >= origin_ns_) {
            return true;
        }
    }
    return false;
}

bool EurocInertial::readAhead() {
    EurocSample sample;
    while (!ahead_valid_) {
        if (!readLine(sample)) {
            if (span_ns_ == 0 || !any_) {
                return false;
            }
            ++round_;
            any_ = false;
            file_.clear();
            file_.seekg(0);
            continue;
        }
        any_ = true;
        const uint64_t within = sample.time_ns - origin_ns_;
        const uint64_t elapsed = within + round_ * span_ns_;
        const bool in_round = span_ns_ == 0 || within < span_ns_;
        if (in_round && (latest_.elapsed_ns == 0 || elapsed > last_elapsed_)) {
            ahead_ = convert(sample);
            ahead_valid_ = true;
        }
    }
    return true;
}

InertialSample EurocInertial::convert(const EurocSample& measured) {
    InertialSample sample;
    sample.elapsed_ns = measured.time_ns - origin_ns_ + round_ * span_ns_;
    const Eigen::Vector3d rate =
        body_to_camera_ * Eigen::Vector3d(measured.rate[0], measured.rate[1], measured.rate[2]);
    const Eigen::Vector3d force =
        body_to_camera_ * Eigen::Vector3d(measured.force[0], measured.force[1], measured.force[2]);
    // After a gap the rate says nothing about the time between.
    const double seconds = std::min(static_cast<double>(sample.elapsed_ns - last_elapsed_) * 1e-9, 0.1);
    filter_.update(rate, force, seconds);
    last_elapsed_ = sample.elapsed_ns;
    sample.orientation = filter_.orientation();
    sample.rate = rate * kDegrees;
    sample.raw_rate = sample.rate;
    sample.force = force;
    sample.raw_force = force;
    return sample;
}

bool EurocInertial::next(uint64_t until, InertialSample& sample) {
    if (!readAhead() || ahead_.elapsed_ns > until) {
        return false;
    }
    sample = ahead_;
    latest_ = ahead_;
    ahead_valid_ = false;
    return true;
}

InertialSample EurocInertial::atPicture(uint64_t /*elapsed*/) {
    return latest_;
}

Eigen::Vector3d EurocInertial::rateVariance() const {
    return Eigen::Vector3d::Constant(1e-2);
}
Eigen::Vector3d EurocInertial::forceVariance() const {
    return Eigen::Vector3d::Constant(1e-3);
}

}  // namespace oru::virtual_bus
