#include "collaborators/frame_metadata.hpp"

#include <algorithm>
#include <limits>

#include "utils/bytes.hpp"

// Layout of the 256 bytes, little endian, floats in IEEE 754 single precision:
//
//     0  orientation, four floats w, x, y, z         88  vector_2, three floats
//    16  sample_state, one byte                      100  vector_3, three floats
//    17  flags: bit 0 valid, 1 magnetometer,         112  vector_4, three floats
//        2 barometer, 3 extra temperatures           124  variances_a, three floats
//    18  heading_state, two bytes, signed            136  variances_b, three floats
//    20  pose orientation, four floats w, x, y, z    148  orientation_covariance, upper triangle row by row, ten floats
//    36  pose translation, three floats              188  magnetic_vector_1, three floats
//    48  imu_timestamp, eight bytes                  200  magnetic_vector_2, three floats
//    56  barometer_timestamp, eight bytes            212  heading_accuracy, float
//    64  magnetometer_timestamp, eight bytes         216  heading, float
//    72  sync_count, four bytes, signed              220  imu_temperature, float
//    76  vector_1, three floats                      224  barometer_temperature, float
//                                                    228  pressure, float
//                                                    232  relative_altitude, float
//                                                    236  extra_temperatures, two floats
//                                                    244  translation, three floats
//
// The one field without room is `reserved`; it reads back as 0. A covariance is symmetric, so its upper triangle is all
// of it; a heading state outside 16 bits is clamped.

namespace oru::rlxrw {
namespace {

enum Flag : unsigned { VALID = 1, MAGNETOMETER = 2, BAROMETER = 4, EXTRA_TEMPERATURES = 8 };

constexpr std::size_t kOrientation = 0;
constexpr std::size_t kSampleState = 16;
constexpr std::size_t kFlags = 17;
constexpr std::size_t kHeadingState = 18;
constexpr std::size_t kPoseOrientation = 20;
constexpr std::size_t kPoseTranslation = 36;
constexpr std::size_t kCovariance = 148;
constexpr std::size_t kCovarianceEnd = kCovariance + 10 * sizeof(float);

/// Copies between a packet's fields and the record, one way or the other.
struct Store {
    unsigned char* bytes;
    template <class T>
    void operator()(std::size_t offset, const T& field) const {
        storeBytes<std::endian::little>(field, bytes + offset);
    }
};

struct Load {
    const unsigned char* bytes;
    template <class T>
    void operator()(std::size_t offset, T& field) const {
        loadBytes<std::endian::little>(bytes + offset, field);
    }
};

/// The fields that lie in the record as they lie in the packet.
template <class Copy, class Packet>
void copyPlainFields(const Copy& copy, Packet& packet) {
    copy(kSampleState, packet.sample_state);
    copy(kPoseTranslation, packet.metadata_translation);
    copy(48, packet.imu_timestamp);
    copy(56, packet.barometer_timestamp);
    copy(64, packet.magnetometer_timestamp);
    copy(72, packet.sync_count);
    copy(76, packet.vector_1);
    copy(88, packet.vector_2);
    copy(100, packet.vector_3);
    copy(112, packet.vector_4);
    copy(124, packet.variances_a);
    copy(136, packet.variances_b);
    copy(188, packet.magnetic_vector_1);
    copy(200, packet.magnetic_vector_2);
    copy(212, packet.heading_accuracy);
    copy(216, packet.heading);
    copy(220, packet.imu_temperature);
    copy(224, packet.barometer_temperature);
    copy(228, packet.pressure);
    copy(232, packet.relative_altitude);
    copy(236, packet.extra_temperatures);
    copy(244, packet.translation);
}

using Quaternion = std::array<float, 4>;

Quaternion scalarFirst(const Quaternion& q) {
    return {q[3], q[0], q[1], q[2]};
}

Quaternion scalarLast(const Quaternion& q) {
    return {q[1], q[2], q[3], q[0]};
}

uint8_t flagsOf(const IMUPacket& packet) {
    return static_cast<uint8_t>((packet.valid ? VALID : 0U) | (packet.magnetometer_available ? MAGNETOMETER : 0U) |
                                (packet.barometer_available ? BAROMETER : 0U) |
                                (packet.extra_temperatures_present ? EXTRA_TEMPERATURES : 0U));
}

int16_t clampToTwoBytes(int32_t value) {
    using Limits = std::numeric_limits<int16_t>;
    return static_cast<int16_t>(std::clamp<int32_t>(value, Limits::min(), Limits::max()));
}

}  // namespace

void convertMetadataFromMCUData(rlxSampleMetadata& metadata, IMUPacket packet) {
    const Store store{metadata.bytes};
    copyPlainFields(store, packet);
    store(kOrientation, scalarFirst(packet.orientation));
    store(kPoseOrientation, scalarFirst(packet.metadata_orientation));
    store(kFlags, flagsOf(packet));
    store(kHeadingState, clampToTwoBytes(packet.heading_state));
    std::size_t offset = kCovariance;
    for (std::size_t row = 0; row < 4; ++row) {
        for (std::size_t column = row; column < 4; ++column, offset += sizeof(float)) {
            store(offset, packet.orientation_covariance.at(4 * row + column));
        }
    }
    static_assert(kCovarianceEnd == 188);
}

void convertMetadataToMCUData(rlxSampleMetadata metadata, IMUPacket& packet) {
    const Load load{metadata.bytes};
    packet = {};
    copyPlainFields(load, packet);
    load(kOrientation, packet.orientation);
    load(kPoseOrientation, packet.metadata_orientation);
    packet.orientation = scalarLast(packet.orientation);
    packet.metadata_orientation = scalarLast(packet.metadata_orientation);

    uint8_t flags = 0;
    load(kFlags, flags);
    packet.valid = (flags & VALID) != 0;
    packet.magnetometer_available = (flags & MAGNETOMETER) != 0;
    packet.barometer_available = (flags & BAROMETER) != 0;
    packet.extra_temperatures_present = (flags & EXTRA_TEMPERATURES) != 0;

    int16_t headingState = 0;
    load(kHeadingState, headingState);
    packet.heading_state = headingState;

    std::size_t offset = kCovariance;
    for (std::size_t row = 0; row < 4; ++row) {
        for (std::size_t column = row; column < 4; ++column, offset += sizeof(float)) {
            load(offset, packet.orientation_covariance.at(4 * row + column));
            packet.orientation_covariance.at(4 * column + row) = packet.orientation_covariance.at(4 * row + column);
        }
    }
}

bool hasSample(const rlxSampleMetadata& metadata) {
    Quaternion orientation{};
    Load{metadata.bytes}(kOrientation, orientation);
    return orientation != Quaternion{};
}

ImuPose poseOf(const rlxSampleMetadata& metadata) {
    const Load load{metadata.bytes};
    ImuPose pose;
    load(kPoseOrientation, pose.orientation);
    load(kPoseTranslation, pose.translation);
    pose.orientation = scalarLast(pose.orientation);
    return pose;
}

void setPose(rlxSampleMetadata& metadata, const Transform& imuToCamera) {
    const Store store{metadata.bytes};
    const Orientation q = imuToCamera.getOrientation();
    const Translation t = imuToCamera.getTranslation();
    store(kPoseOrientation, Quaternion{q[3], q[0], q[1], q[2]});
    store(kPoseTranslation, std::array<float, 3>{t[0], t[1], t[2]});
}

}  // namespace oru::rlxrw
