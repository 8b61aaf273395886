#include "oru_koruone/imu_frame.hpp"

#include <Eigen/Geometry>
#include <cmath>

#include "collaborators/kit_functions.hpp"

namespace oru {
namespace {

constexpr double kPole = 0.499;
using Jacobian = Eigen::Matrix<double, 3, 4>;  // columns w, x, y, z

/// d atan2(n, d) = (d dn - n dd) / (n^2 + d^2)
Eigen::RowVector4d angleRow(double n, const Eigen::RowVector4d& dn, double d, const Eigen::RowVector4d& dd) {
    return (d * dn - n * dd) / (n * n + d * d);
}

Jacobian angleJacobian(const Orientation& orientation) {
    const double x = orientation[0];
    const double y = orientation[1];
    const double z = orientation[2];
    const double w = orientation[3];
    const double t = x * y + z * w;
    Jacobian rows = Jacobian::Zero();
    if (std::abs(t) > kPole) {
        const double sign = t > 0.0 ? 1.0 : -1.0;
        rows.row(1) << -2.0 * sign * x, 2.0 * sign * w, 0.0, 0.0;
        rows.row(1) /= x * x + w * w;
        return rows;
    }
    rows.row(0) = angleRow(2.0 * (x * w - y * z), {2.0 * x, 2.0 * w, -2.0 * z, -2.0 * y}, 1.0 - 2.0 * (x * x + z * z),
                           {0.0, -4.0 * x, 0.0, -4.0 * z});
    rows.row(1) = angleRow(2.0 * (y * w - x * z), {2.0 * y, -2.0 * z, 2.0 * w, -2.0 * x}, 1.0 - 2.0 * (y * y + z * z),
                           {0.0, 0.0, -4.0 * y, -4.0 * z});
    rows.row(2) << 2.0 * z, 2.0 * y, 2.0 * x, 2.0 * w;
    rows.row(2) /= std::sqrt(1.0 - 4.0 * t * t);
    return rows;
}

/// How a quaternion (w, x, y, z) changes with the frame.
Eigen::Matrix4f quaternionChange(const Eigen::Matrix3f& rotation) {
    const Eigen::Matrix3f proper = rotation.determinant() < 0.0F ? Eigen::Matrix3f(-rotation) : rotation;
    const Eigen::Quaternionf m(proper);
    Eigen::Matrix4f change = Eigen::Matrix4f::Zero();
    change(0, 0) = m.w() * m.w() - m.x() * m.x() - m.y() * m.y() - m.z() * m.z();
    change.block<3, 1>(1, 0) = 2.0F * m.w() * m.vec();
    change.block<3, 3>(1, 1) = m.toRotationMatrix();
    return change;
}

}  // namespace

Eigen::Matrix4f samplePose(const IMUPacket& sample) {
    const auto& q = sample.orientation;
    const auto& t = sample.translation;
    Transform pose;
    pose.setOrientation(Orientation(Vector4<float>(q[0], q[1], q[2], q[3])));
    pose.setTranslation(Translation(Vector3<float>(t[0], t[1], t[2])));
    Eigen::Matrix4f matrix;
    cvtMatrix4f(pose, matrix);
    return matrix;
}

void storePose(const Eigen::Matrix4f& pose, IMUPacket& sample) {
    Transform transform;
    cvtMatrix4f(pose, transform);
    const Orientation orientation = transform.getOrientation();
    const Translation translation = transform.getTranslation();
    sample.orientation = {orientation[0], orientation[1], orientation[2], orientation[3]};
    sample.translation = {translation[0], translation[1], translation[2]};
}

Eigen::Matrix4f scaled(Eigen::Matrix4f pose, float factor) {
    pose.block<3, 1>(0, 3) *= factor;
    return pose;
}

Matrix3f poseCovariance(const IMUPacket& sample, const Eigen::Matrix3f& rotation, const Transform& pose) {
    using RowMajor4 = Eigen::Matrix<float, 4, 4, Eigen::RowMajor>;
    const Eigen::Matrix4f quaternionCovariance = Eigen::Map<const RowMajor4>(sample.orientation_covariance.data());
    const Eigen::Matrix4f change = quaternionChange(rotation);
    const Eigen::Matrix4d sigma = (change * quaternionCovariance * change.transpose()).cast<double>();
    const Jacobian jacobian = angleJacobian(pose.getOrientation());
    const Eigen::Matrix3d angles = jacobian * sigma * jacobian.transpose();
    Matrix3f result;
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            result(static_cast<std::size_t>(row), static_cast<std::size_t>(column)) =
                static_cast<float>(angles(row, column));
        }
    }
    return result;
}

}  // namespace oru
