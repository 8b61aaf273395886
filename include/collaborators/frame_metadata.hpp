#pragma once

#include <array>

#include "collaborators/RLXVideo.hpp"
#include "oru/geometry.hpp"
#include "oru_input/mcu/IMUPacket.hpp"
#include "utils/private_export.hpp"

// What the 256 bytes of a frame's metadata say; src/kit/frame_metadata.cpp lists the offsets. Threads: any.

namespace oru::rlxrw {

/// Writes every field of the packet that the record has room for.
ORU_PRIVATE_API void convertMetadataFromMCUData(rlxSampleMetadata& metadata, IMUPacket packet);
/// Fills a packet from the record; exact for what convertMetadataFromMCUData wrote.
ORU_PRIVATE_API void convertMetadataToMCUData(rlxSampleMetadata metadata, IMUPacket& packet);

/// The frame came with an inertial sample: without one its orientation is four zeros instead of a quaternion.
[[nodiscard]] ORU_PRIVATE_API bool hasSample(const rlxSampleMetadata& metadata);

/// Where the inertial sensor sits in the camera. The orientation is four zeros where nobody wrote it.
struct ImuPose {
    std::array<float, 4> orientation{};  ///< x, y, z, w
    std::array<float, 3> translation{};
};
[[nodiscard]] ORU_PRIVATE_API ImuPose poseOf(const rlxSampleMetadata& metadata);
ORU_PRIVATE_API void setPose(rlxSampleMetadata& metadata, const Transform& imuToCamera);

}  // namespace oru::rlxrw
