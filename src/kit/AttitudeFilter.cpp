#include "kit/AttitudeFilter.hpp"

#include <cmath>

namespace oru {
namespace {

constexpr double kProportional = 1.0;  // rad/s per unit of error
constexpr double kIntegral = 0.05;
constexpr double kMaxBias = 0.2;           // rad/s
constexpr double kGravity = 9.80665;       // m/s^2
constexpr double kGravityDeviation = 0.3;  // a part of gravity; a body accelerated more does not feel its direction
constexpr double kLeastForce = 0.1;        // m/s^2 that have a direction

}  // namespace

void AttitudeFilter::update(const Eigen::Vector3d& rate, const Eigen::Vector3d& force, double seconds) {
    const double norm = force.norm();
    const Eigen::Vector3d up(0.0, -1.0, 0.0);
    if (!levelled) {
        if (norm > kLeastForce) {
            attitude = Eigen::Quaterniond::FromTwoVectors(force, up);
            levelled = true;
        }
        return;
    }
    Eigen::Vector3d correction = Eigen::Vector3d::Zero();
    if (std::abs(norm - kGravity) < kGravityDeviation * kGravity) {
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

}  // namespace oru
