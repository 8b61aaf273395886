#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "collaborators/frame_metadata.hpp"

namespace oru {
namespace {

using rlxrw::convertMetadataFromMCUData;
using rlxrw::convertMetadataToMCUData;
using rlxrw::rlxSampleMetadata;

class PacketSource {
public:
    IMUPacket next() {
        IMUPacket packet;
        packet.valid = flag();
        packet.magnetometer_available = flag();
        packet.barometer_available = flag();
        packet.extra_temperatures_present = flag();
        packet.imu_timestamp = bits();
        packet.barometer_timestamp = bits();
        packet.magnetometer_timestamp = bits();
        packet.sync_count = static_cast<int32_t>(bits());
        packet.sample_state = static_cast<uint8_t>(bits());
        packet.heading_state = static_cast<int16_t>(bits());
        for (float* value : {&packet.imu_temperature, &packet.heading_accuracy, &packet.heading,
                             &packet.barometer_temperature, &packet.pressure, &packet.relative_altitude}) {
            *value = number();
        }
        fill(packet.orientation, packet.translation, packet.vector_1, packet.vector_2, packet.vector_3, packet.vector_4,
             packet.variances_a, packet.variances_b, packet.magnetic_vector_1, packet.magnetic_vector_2,
             packet.extra_temperatures, packet.metadata_orientation, packet.metadata_translation);
        for (std::size_t row = 0; row < 4; ++row) {
            for (std::size_t column = row; column < 4; ++column) {
                packet.orientation_covariance[4 * row + column] = number();
                packet.orientation_covariance[4 * column + row] = packet.orientation_covariance[4 * row + column];
            }
        }
        return packet;
    }

private:
    uint64_t bits() { return generator(); }
    bool flag() { return (generator() & 1U) != 0; }
    float number() { return static_cast<float>(static_cast<int32_t>(bits())) / 3.0F; }
    template <class... Arrays>
    void fill(Arrays&... arrays) {
        (std::generate(arrays.begin(), arrays.end(), [this] { return number(); }), ...);
    }

    std::mt19937_64 generator{20};
};

float floatAt(const rlxSampleMetadata& metadata, std::size_t offset) {
    float value = 0;
    std::memcpy(&value, metadata.bytes + offset, sizeof(value));
    return value;
}

TEST(FrameMetadata, RoundTripsEveryFieldThatFitsExactly) {
    PacketSource source;
    for (int i = 0; i < 200; ++i) {
        const IMUPacket packet = source.next();
        rlxSampleMetadata metadata{};
        IMUPacket back = source.next();

        convertMetadataFromMCUData(metadata, packet);
        convertMetadataToMCUData(metadata, back);

        ASSERT_EQ(back, packet) << i;
    }
}

TEST(FrameMetadata, WritesEveryByteWhateverWasThere) {
    const IMUPacket packet = PacketSource().next();
    rlxSampleMetadata onZeros{};
    rlxSampleMetadata onOnes{};
    std::memset(onOnes.bytes, 0xFF, sizeof(onOnes.bytes));

    convertMetadataFromMCUData(onZeros, packet);
    convertMetadataFromMCUData(onOnes, packet);

    EXPECT_EQ(std::memcmp(onZeros.bytes, onOnes.bytes, sizeof(onZeros.bytes)), 0);
}

TEST(FrameMetadata, PutsTheSharedFieldsWhereReadersLook) {
    IMUPacket packet;
    packet.orientation = {1, 2, 3, 4};
    packet.sample_state = 0xA5;
    packet.metadata_orientation = {5, 6, 7, 8};
    packet.metadata_translation = {9, 10, 11};
    packet.imu_timestamp = 0x0102030405060708;
    packet.translation = {12, 13, 14};
    rlxSampleMetadata metadata{};

    convertMetadataFromMCUData(metadata, packet);

    const struct {
        std::size_t offset;
        float value;
    } floats[] = {{0, 4},  {4, 1},  {8, 2},   {12, 3},  {20, 8},   {24, 5},   {28, 6},
                  {32, 7}, {36, 9}, {40, 10}, {44, 11}, {244, 12}, {248, 13}, {252, 14}};
    for (const auto& [offset, value] : floats) {
        EXPECT_EQ(floatAt(metadata, offset), value) << offset;
    }
    EXPECT_EQ(metadata.bytes[16], 0xA5);
    EXPECT_EQ(metadata.bytes[48], 0x08);
    EXPECT_EQ(metadata.bytes[55], 0x01);
}

TEST(FrameMetadata, PoseIsReplacedAloneAndReadBack) {
    IMUPacket packet = PacketSource().next();
    Transform pose;
    pose.setOrientation(Orientation(Vector4<float>(0.0F, 0.0F, 0.6F, 0.8F)));
    pose.setTranslation(Translation(Vector3<float>(1.0F, -2.0F, 3.0F)));
    rlxSampleMetadata metadata{};
    IMUPacket back;
    convertMetadataFromMCUData(metadata, packet);
    const rlxrw::ImuPose before = rlxrw::poseOf(metadata);

    setPose(metadata, pose);

    EXPECT_EQ(before.orientation, packet.metadata_orientation);
    EXPECT_EQ(before.translation, packet.metadata_translation);
    const auto [orientation, translation] = rlxrw::poseOf(metadata);
    EXPECT_FLOAT_EQ(orientation[2], 0.6F);
    EXPECT_FLOAT_EQ(orientation[3], 0.8F);
    EXPECT_EQ(translation, (std::array{1.0F, -2.0F, 3.0F}));
    packet.metadata_orientation = orientation;
    packet.metadata_translation = translation;
    convertMetadataToMCUData(metadata, back);
    EXPECT_EQ(back, packet) << "nothing but the pose changed";
}

TEST(FrameMetadata, HasASampleUnlessItsOrientationIsFourZeros) {
    rlxSampleMetadata metadata{};
    IMUPacket packet = PacketSource().next();
    packet.orientation = {0.0F, -0.0F, 0.0F, 0.0F};
    convertMetadataFromMCUData(metadata, packet);
    EXPECT_FALSE(hasSample(metadata));
    for (std::size_t i = 0; i < 4; ++i) {
        packet.orientation = {};
        packet.orientation[i] = -1.0F;
        convertMetadataFromMCUData(metadata, packet);
        EXPECT_TRUE(hasSample(metadata)) << i;
    }
}

TEST(FrameMetadata, OfNothingIsAnInvalidPacket) {
    IMUPacket packet = PacketSource().next();

    convertMetadataToMCUData(rlxSampleMetadata{}, packet);

    EXPECT_EQ(packet, IMUPacket());
}

TEST(FrameMetadata, ClampsAHeadingStateThatDoesNotFit) {
    for (const auto& [state, stored] : {std::pair{70000, 32767}, std::pair{-70000, -32768}}) {
        IMUPacket packet;
        packet.heading_state = state;
        rlxSampleMetadata metadata{};

        convertMetadataFromMCUData(metadata, packet);
        convertMetadataToMCUData(metadata, packet);

        EXPECT_EQ(packet.heading_state, stored);
    }
}

}  // namespace
}  // namespace oru
