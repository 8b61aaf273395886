#pragma once

#include <array>

#include "oru/types.hpp"

/// Between the camera's axes and those of robots, as ROS's REP 103 names them (https://www.ros.org/reps/rep-0103.html):
///   optical  x right, y down, z forward: the camera's own axes and AXIS_CONVENTION_0, a frame called *_optical_frame
///   body     x forward, y left, z up
/// None of the other conventions is the body's: open with AXIS_CONVENTION_0 and convert here.
/// Both frames have one origin, and values only change places and signs: conversions are exact and undo each other.
namespace oru::frames {

/// Application axes in the camera's: takes coordinates along the axes of a convention to optical ones, and its columns
/// are the application's x, y and z. The identity for a value that is not listed; 1 and 4 are reflections.
[[nodiscard]] ORU_API Matrix3f opticalFromApplication(AXIS_CONVENTION convention);

/// The fixed rotation that takes optical coordinates to body coordinates; as a transform it is the pose of the optical
/// frame in the body frame (roll -90, pitch 0, yaw -90 degrees), which robots publish between the two.
[[nodiscard]] ORU_API Transform bodyFromOptical();

/// A vector: a rate, a force, a field, a position.
template <class T>
[[nodiscard]] Vector3<T> toBody(const Vector3<T>& optical) {
    return {optical[2], -optical[0], -optical[1]};
}
template <class T>
[[nodiscard]] Vector3<T> toOptical(const Vector3<T>& body) {
    return {-body[1], -body[2], body[0]};
}

/// A rotation between two frames that are both optical becomes the one between their body frames.
[[nodiscard]] ORU_API Orientation toBody(const Orientation& optical);
[[nodiscard]] ORU_API Orientation toOptical(const Orientation& body);

/// A pose likewise, with its translation: `imu.pose` and `imu_to_camera`. To change one side alone, multiply:
/// `worldFromOptical * Transform::inverse(bodyFromOptical())`.
[[nodiscard]] ORU_API Transform toBody(const Transform& optical);
[[nodiscard]] ORU_API Transform toOptical(const Transform& body);

/// The covariance of a vector, or a rotation as a matrix.
[[nodiscard]] ORU_API Matrix3f toBody(const Matrix3f& optical);
[[nodiscard]] ORU_API Matrix3f toOptical(const Matrix3f& body);

/// The covariance of a pose or of a velocity, row by row: along x, y, z, then about x, y, z.
using Covariance6 = std::array<double, 36>;
[[nodiscard]] ORU_API Covariance6 toBody(const Covariance6& optical);
[[nodiscard]] ORU_API Covariance6 toOptical(const Covariance6& body);

}  // namespace oru::frames
