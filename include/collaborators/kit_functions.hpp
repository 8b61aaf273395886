#pragma once

#include <Eigen/Core>

#include "oru/types.hpp"

namespace oru {

/// A rigid transform: finite, last row (0, 0, 0, 1), rotation block orthonormal within 1e-3 with determinant +1.
bool isTransformValid(const Matrix4f& transform);

void cvtMatrix4f(const Eigen::Matrix<float, 4, 4>& from, Matrix4f& to);
void cvtMatrix4f(const Matrix4f& from, Eigen::Matrix<float, 4, 4>& to);

/// Fields of view in degrees of a distortion-free camera of this size: between the rays through the border points.
void ComputeRectilinearFoV(CameraParameters& params, Resolution& resolution);

/// Fields of view in degrees with the distortion; where the lens model cannot be inverted to within `tolerance` percent
/// the distortion-free value stands.
void ComputeTVDistoFov(CameraParameters& params, Resolution& resolution, float tolerance);

}  // namespace oru
