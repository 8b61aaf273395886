#pragma once

#include <Eigen/Core>

#include "collaborators/RLXVideo.hpp"
#include "oru/types.hpp"
#include "oru_input/mcu/IMUPacket.hpp"

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

namespace rlxrw {

/// Writes every field of the packet that the 256-byte record has room for; kit_functions.cpp documents the offsets.
void convertMetadataFromMCUData(rlxSampleMetadata& metadata, IMUPacket packet);
/// Fills a packet from the record; exact for what convertMetadataFromMCUData wrote.
void convertMetadataToMCUData(rlxSampleMetadata metadata, IMUPacket& packet);

}  // namespace rlxrw
}  // namespace oru
