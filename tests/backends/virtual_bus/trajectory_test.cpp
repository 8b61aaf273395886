#include "backends/virtual_bus/scene/trajectory.hpp"

#include <gtest/gtest.h>

namespace oru::virtual_bus {
namespace {

TEST(Trajectory, RateAndAccelerationAreTheDerivativesOfThePose) {
    const double h = 1e-4;
    for (const Motion motion : {Motion::GENTLE, Motion::LIVELY}) {
        for (const bool upsideDown : {false, true}) {
            const Trajectory trajectory(motion, upsideDown);
            for (double t = 0.3; t < 20.0; t += 1.37) {
                const MotionState before = trajectory.at(t - h);
                const MotionState now = trajectory.at(t);
                const MotionState after = trajectory.at(t + h);

                const Eigen::AngleAxisd turn(before.orientation.conjugate() * after.orientation);
                const Eigen::Vector3d rate = turn.axis() * turn.angle() / (2.0 * h);
                const Eigen::Vector3d acceleration = (before.position - 2.0 * now.position + after.position) / (h * h);

                ASSERT_LT((rate - now.angular_rate).norm(), 1e-5) << t;
                ASSERT_LT((acceleration - now.acceleration).norm(), 1e-5) << t;
            }
        }
    }
}

TEST(Trajectory, AtRestNothingButGravityIsFelt) {
    const Trajectory trajectory(Motion::REST);

    const MotionState state = trajectory.at(12.0);

    EXPECT_EQ(state.angular_rate.norm(), 0.0);
    EXPECT_NEAR(specificForce(state).norm(), kGravity, 1e-12);
    EXPECT_LT(specificForce(state).y(), -0.9 * kGravity) << "an accelerometer feels the support from below";
    EXPECT_EQ(trajectory.at(0.0).position, state.position);
}

}  // namespace
}  // namespace oru::virtual_bus
