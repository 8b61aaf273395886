#pragma once

#include <Eigen/Geometry>

namespace oru {

/// Attitude from rate and force: the explicit complementary filter with bias correction of R. Mahony, T. Hamel and
/// J.-M. Pflimlin, "Nonlinear complementary filters on the special orthogonal group", IEEE Transactions on Automatic
/// Control 53(5), 2008. Heading is free and starts at zero. Threads: one.
class AttitudeFilter {
public:
    /// Rate in rad/s, force in m/s^2, both in body axes; the first call levels the body.
    void update(const Eigen::Vector3d& rate, const Eigen::Vector3d& force, double seconds);
    /// Body axes to world axes (y down).
    [[nodiscard]] const Eigen::Quaterniond& orientation() const { return attitude; }

private:
    bool levelled = false;
    Eigen::Quaterniond attitude = Eigen::Quaterniond::Identity();
    Eigen::Vector3d bias = Eigen::Vector3d::Zero();
};

}  // namespace oru
