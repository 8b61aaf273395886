#include "kit/AttitudeFilter.hpp"

#include <gtest/gtest.h>

namespace oru {
namespace {

constexpr double kGravity = 9.80665;

TEST(AttitudeFilter, FindsTheHorizonAndFollowsARotation) {
    AttitudeFilter filter;
    const double step = 0.005;
    const double rate = 0.5;
    const Eigen::Vector3d gyroBias(0.02, -0.01, 0.0);
    for (int i = 0; i < 40000; ++i) {
        const double angle = rate * step * i;
        const Eigen::Quaterniond truth(Eigen::AngleAxisd(angle, Eigen::Vector3d::UnitZ()));
        const Eigen::Vector3d force = truth.conjugate() * Eigen::Vector3d(0.0, -kGravity, 0.0);
        filter.update(Eigen::Vector3d(0.0, 0.0, rate) + gyroBias, force, step);
    }
    const Eigen::Vector3d downError =
        filter.orientation().conjugate() * Eigen::Vector3d(0.0, -1.0, 0.0) -
        Eigen::Quaterniond(Eigen::AngleAxisd(rate * step * 39999, Eigen::Vector3d::UnitZ())).conjugate() *
            Eigen::Vector3d(0.0, -1.0, 0.0);

    EXPECT_LT(downError.norm(), 0.02);
}

}  // namespace
}  // namespace oru
