#pragma once

#include <Eigen/Core>

#include "oru/geometry.hpp"
#include "oru_input/mcu/IMUPacket.hpp"

namespace oru {

/// Half a turn about the optical axis: what a flipped camera needs.
inline const Eigen::Matrix4f kHalfTurnAboutZ = Eigen::Vector4f(-1.0F, -1.0F, 1.0F, 1.0F).asDiagonal();

/// Orientation and translation of a sample as a homogeneous matrix.
Eigen::Matrix4f samplePose(const IMUPacket& sample);

/// Writes rotation and translation of a pose back into a sample.
void storePose(const Eigen::Matrix4f& pose, IMUPacket& sample);

/// The pose with its translation multiplied by `factor`.
Eigen::Matrix4f scaled(Eigen::Matrix4f pose, float factor);

/// Covariance of the three angles of `pose` (about x, y and z; public formulas of the attitude from a unit quaternion)
/// from the covariance of a sample's quaternion, after `rotation` has changed the frame. A reflection counts as the
/// rotation that it is the negative of.
Matrix3f poseCovariance(const IMUPacket& sample, const Eigen::Matrix3f& rotation, const Transform& pose);

}  // namespace oru
