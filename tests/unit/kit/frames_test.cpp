#include "oru/frames.hpp"

#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <cmath>

namespace oru {
namespace {

using frames::toBody;
using frames::toOptical;

Eigen::Matrix3d rotationOf(const Transform& pose) {
    Eigen::Matrix3d matrix;
    for (int i = 0; i < 9; ++i) {
        matrix(i / 3, i % 3) =
            static_cast<double>(pose(static_cast<std::size_t>(i / 3), static_cast<std::size_t>(i % 3)));
    }
    return matrix;
}

/// From the three words of REP 103 alone.
Eigen::Matrix3d bodyFromOptical() {
    const Eigen::Vector3d right(1, 0, 0);
    const Eigen::Vector3d down(0, 1, 0);
    const Eigen::Vector3d forward(0, 0, 1);
    Eigen::Matrix3d rows;
    rows << forward.transpose(), -right.transpose(), -down.transpose();
    return rows;
}

Transform somePose() {
    const Eigen::Quaternionf turn(Eigen::AngleAxisf(0.7F, Eigen::Vector3f(2, -1, 1).normalized()));
    Transform pose;
    pose.setOrientation(Orientation(Vector4<float>(turn.x(), turn.y(), turn.z(), turn.w())));
    pose.setTranslation(Translation(Vector3<float>(30, -20, 10)));
    return pose;
}

TEST(Frames, VectorsOfTheOpticalFrameLieInTheBodyFrameAsNamed) {
    EXPECT_EQ(toBody(Vector3<double>(0, 0, 1)), Vector3<double>(1, 0, 0)) << "forward";
    EXPECT_EQ(toBody(Vector3<double>(-1, 0, 0)), Vector3<double>(0, 1, 0)) << "left";
    EXPECT_EQ(toBody(Vector3<double>(0, -1, 0)), Vector3<double>(0, 0, 1)) << "up";
    EXPECT_EQ(toOptical(toBody(Vector3<float>(1, 2, 3))), Vector3<float>(1, 2, 3));
    const Eigen::Vector3d roll(-M_PI / 2, 0, -M_PI / 2);
    const Eigen::Matrix3d published =
        (Eigen::AngleAxisd(roll.z(), Eigen::Vector3d::UnitZ()) * Eigen::AngleAxisd(roll.y(), Eigen::Vector3d::UnitY()) *
         Eigen::AngleAxisd(roll.x(), Eigen::Vector3d::UnitX()))
            .toRotationMatrix();
    EXPECT_LT((rotationOf(frames::bodyFromOptical()) - published).norm(), 1e-12);
}

TEST(Frames, RotationsPosesAndCovariancesChangeAsTheirVectorsDo) {
    const Eigen::Matrix3d change = bodyFromOptical();
    const Transform pose = somePose();
    const Transform body = toBody(pose);
    EXPECT_LT((rotationOf(body) - change * rotationOf(pose) * change.transpose()).norm(), 1e-6);
    EXPECT_EQ(body.getTranslation()[0], 10.0F);
    EXPECT_EQ(body.getTranslation()[1], -30.0F);
    EXPECT_EQ(body.getTranslation()[2], 20.0F);
    Transform fromQuaternion;
    fromQuaternion.setOrientation(toBody(pose.getOrientation()));
    EXPECT_LT((rotationOf(fromQuaternion) - rotationOf(body)).norm(), 1e-6);
    EXPECT_EQ(toOptical(body), pose);
    EXPECT_EQ(toOptical(toBody(pose.getOrientation())), pose.getOrientation());

    Matrix3f covariance;
    frames::Covariance6 six{};
    Eigen::Matrix<double, 6, 6> sixMatrix;
    for (std::size_t i = 0; i < 36; ++i) {
        const std::size_t row = i / 6;
        const std::size_t column = i % 6;
        six[i] = static_cast<double>(std::min(row, column) * 7 + std::max(row, column));
        sixMatrix(static_cast<int>(row), static_cast<int>(column)) = six[i];
    }
    for (std::size_t i = 0; i < 9; ++i) {
        covariance(i / 3, i % 3) = static_cast<float>(six[i / 3 * 6 + i % 3]);
    }
    Eigen::Matrix<double, 6, 6> both = Eigen::Matrix<double, 6, 6>::Zero();
    both.topLeftCorner<3, 3>() = change;
    both.bottomRightCorner<3, 3>() = change;
    const Eigen::Matrix<double, 6, 6> expected = both * sixMatrix * both.transpose();
    const frames::Covariance6 turned = toBody(six);
    for (std::size_t i = 0; i < 36; ++i) {
        EXPECT_EQ(turned[i], expected(static_cast<int>(i / 6), static_cast<int>(i % 6))) << i;
    }
    for (std::size_t i = 0; i < 9; ++i) {
        EXPECT_EQ(toBody(covariance)(i / 3, i % 3), static_cast<float>(turned[i / 3 * 6 + i % 3]));
    }
    EXPECT_EQ(toOptical(turned), six);
    EXPECT_EQ(toOptical(toBody(covariance)), covariance);
}

TEST(Transform, InverseAndProductUndoAndChainPoses) {
    const Transform pose = somePose();
    const Transform nothing = pose * Transform::inverse(pose);
    for (std::size_t i = 0; i < 16; ++i) {
        EXPECT_NEAR(nothing(i / 4, i % 4), Transform()(i / 4, i % 4), 1e-5F) << i;
    }
    Transform step;
    step.setTranslation(Translation(Vector3<float>(1, 0, 0)));
    EXPECT_EQ((pose * step).getTranslation()[0], 30.0F + pose(0, 0));
    EXPECT_EQ((step * pose).getTranslation()[0], 31.0F);
}

}  // namespace
}  // namespace oru
