#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string_view>

#include "backends/stream/stream_fixture.hpp"
#include "backends/stream/wire/records.hpp"
#include "doubles/golden_sample.hpp"

namespace oru::stream {
namespace {

/// Keeps what a reader hands out.
class Kept final : public RecordSink {
public:
    void onFrameRecord(const FrameRecord& record, const std::vector<IMUPacket>& packets) override {
        frames.push_back(record);
        samples.insert(samples.end(), packets.begin(), packets.end());
    }
    void onDescription(DescriptionRecord&& record) override { descriptions.push_back(std::move(record)); }

    std::vector<FrameRecord> frames;
    std::vector<IMUPacket> samples;
    std::vector<DescriptionRecord> descriptions;
};

FrameRecord someFrame() {
    FrameRecord record;
    record.key_frame = true;
    record.has_metadata = true;
    record.has_image = true;
    record.image_bytes = 12345;
    record.image_crc = 0xDEADBEEF;
    record.session = 0x0123456789ABCDEF;
    record.frame_id = 77;
    record.timestamp_ns = 1700000000123456789;
    record.skipped_frames = 5;
    record.metadata = test::numberedMetadata(9);
    return record;
}

DescriptionRecord someDescription() {
    DescriptionRecord record;
    record.version_byte = 5;
    record.session = 99;
    record.fps = -3;
    record.camera = {-4711, MODEL_MONO_2UM, 0xFFFFFFFF, 7, 1920, 1200, true, 1};
    record.pose_known = true;
    record.pose = {1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 6.0F, -7.0F};
    record.region_known = true;
    record.region = {1, 2, 300, 400};
    record.controls = {{GAIN, true, true, 50, 0, 100}, {SETTING_12, false, true, 0, -5, 5}};
    record.calibration = "[LEFT_CAM_HD1200]\nfx = 700\n";
    return record;
}

TEST(Records, AFrameComesBackBitForBit) {
    auto packets = test::numberedSamples(3, 1'000'000'000, 12);
    packets[1].imu_temperature = std::numeric_limits<float>::quiet_NaN();
    packets[2].pressure = -0.0F;
    packets[3].magnetometer_available = true;
    packets[4].valid = false;
    std::vector<uint8_t> bytes;
    Kept kept;

    EXPECT_EQ(writeFrameRecord(bytes, someFrame(), packets.data(), packets.size()), packets.size());
    EXPECT_TRUE(RecordReader().read(bytes.data(), bytes.size(), kept));

    ASSERT_EQ(kept.frames.size(), 1U);
    const FrameRecord& got = kept.frames[0];
    EXPECT_TRUE(got.key_frame && got.has_metadata && got.has_image);
    EXPECT_EQ(got.image_bytes, 12345U);
    EXPECT_EQ(got.image_crc, 0xDEADBEEF);
    EXPECT_EQ(got.session, 0x0123456789ABCDEFU);
    EXPECT_EQ(got.frame_id, 77U);
    EXPECT_EQ(got.timestamp_ns, 1700000000123456789U);
    EXPECT_EQ(got.skipped_frames, 5U);
    const rlxrw::rlxSampleMetadata metadata = someFrame().metadata;
    EXPECT_EQ(std::memcmp(&got.metadata, &metadata, sizeof(metadata)), 0);
    ASSERT_EQ(kept.samples.size(), packets.size());
    EXPECT_TRUE(std::isnan(kept.samples[1].imu_temperature));
    EXPECT_TRUE(std::signbit(kept.samples[2].pressure));
    packets[1].imu_temperature = kept.samples[1].imu_temperature = 0.0F;
    EXPECT_TRUE(kept.samples == packets);
}

// A frame record as version 1 has always been: without metadata, a whole sample and two that differ in two fields each.
constexpr std::string_view kStoredFrame =
    "060E2B34010101010F4B4F5255010001830001650105030039300000EFBEADDEEFCDAB89674523014D0000000000000015CD853DFE9C9717"
    "0500000000000000FFFFFF7F01181716151413121128272625242322213837363534333231FCFCFDFE0000A03F00002040000070400000A0"
    "400000C8400000F04000000C4100002041000034410000484100005C41000070410000824100008C41000096410000A0410000AA410000B4"
    "410000BE410000C8410000D2410000DC410000E6410000F0410000FA41000002420000074200000C42000011420000164200001B42000020"
    "420000254200002A4200002F42000034420000394200003E42000043420000484200004D42A50000524201010000574200005C4200006142"
    "0000664200006B4200007042444342410000754200007A4200007F42000082420080844200008742010080894200008C4200808E42000091"
    "4200809342000096420080984200009B4200809D4200004100000000C0BF01004108000100007A4200";
constexpr std::string_view kStoredDescription =
    "060E2B34010101010F4B4F52550100028300009701050F00630000000000000099EDFFFF1F000000FFFFFFFF0700000080070000B0040000"
    "FDFFFFFF0000803F0000004000004040000080400000A0400000C0400000E0C001000000020000002C010000900100000200060000000332"
    "00000000000000640000000C0000000200000000FBFFFFFF050000001B0000005B4C4546545F43414D5F4844313230305D0A6678203D2037"
    "30300A";

TEST(Records, KeepTheBytesOfTheProtocol) {
    FrameRecord frame = someFrame();
    frame.has_metadata = false;
    std::vector<IMUPacket> packets(3, test::distinctSample());
    packets[1].magnetometer_available = false;
    packets[1].heading = -1.5F;
    packets[2].valid = false;
    packets[2].extra_temperatures_present = false;
    std::vector<uint8_t> frameBytes;
    std::vector<uint8_t> descriptionBytes;
    Kept kept;

    writeFrameRecord(frameBytes, frame, packets.data(), packets.size());
    writeDescription(descriptionBytes, someDescription());

    EXPECT_EQ(frameBytes, test::fromHex(kStoredFrame));
    EXPECT_EQ(descriptionBytes, test::fromHex(kStoredDescription));
    EXPECT_TRUE(RecordReader().read(frameBytes.data(), frameBytes.size(), kept));
    EXPECT_EQ(kept.samples, packets);
}

TEST(Records, ADescriptionComesBackWhole) {
    const DescriptionRecord sent = someDescription();
    std::vector<uint8_t> bytes;
    Kept kept;

    writeDescription(bytes, sent);
    EXPECT_TRUE(RecordReader().read(bytes.data(), bytes.size(), kept));

    ASSERT_EQ(kept.descriptions.size(), 1U);
    const DescriptionRecord& got = kept.descriptions[0];
    EXPECT_EQ(got.camera.serial_number, -4711);
    EXPECT_EQ(got.camera.model, MODEL_MONO_2UM);
    EXPECT_EQ(got.camera.camera_fw, 0xFFFFFFFFU);
    EXPECT_EQ(got.camera.width, 1920U);
    EXPECT_TRUE(got.camera.has_imu);
    EXPECT_EQ(got.camera.flip_state, 1);
    EXPECT_EQ(got.fps, 0) << "a negative rate is none";
    EXPECT_EQ(got.pose.tz, -7.0F);
    EXPECT_EQ(got.region, sent.region);
    ASSERT_EQ(got.controls.size(), 2U);
    EXPECT_EQ(got.controls[0].value, 50);
    EXPECT_FALSE(got.controls[1].value_known);
    EXPECT_EQ(got.controls[1].minimum, -5);
    EXPECT_EQ(got.calibration, sent.calibration);
}

TEST(Records, AGoodbyeIsARecordWithoutImageThatEarlierReadersTakeForOne) {
    FrameRecord sent;
    sent.goodbye = true;
    sent.session = 7;
    sent.frame_id = 12;
    std::vector<uint8_t> bytes;
    Kept kept;

    writeFrameRecord(bytes, sent, nullptr, 0);
    ASSERT_TRUE(RecordReader().read(bytes.data(), bytes.size(), kept));

    ASSERT_EQ(kept.frames.size(), 1U);
    EXPECT_TRUE(kept.frames[0].goodbye);
    EXPECT_FALSE(kept.frames[0].has_image || kept.frames[0].key_frame || kept.frames[0].has_metadata);
    EXPECT_EQ(bytes[21], 8U) << "the three flags of a record's beginning stay as they were";
    kept = {};
    writeFrameRecord(bytes, someFrame(), nullptr, 0);
    ASSERT_TRUE(RecordReader().read(bytes.data(), bytes.size(), kept));
    EXPECT_FALSE(kept.frames.back().goodbye);
}

TEST(Records, TheSensorsCalibrationFollowsADescriptionAndMayBeMissing) {
    DescriptionRecord sent = someDescription();
    std::vector<uint8_t> without;
    std::vector<uint8_t> with;
    ImuCalibration calibration;
    calibration.values[3] = 0.125F;
    calibration.values[35] = -2.0F;
    Kept kept;

    writeDescription(without, sent);
    sent.imu_calibration = calibration;
    writeDescription(with, sent);
    ASSERT_TRUE(RecordReader().read(without.data(), without.size(), kept));
    ASSERT_TRUE(RecordReader().read(with.data(), with.size(), kept));

    EXPECT_FALSE(kept.descriptions.at(0).imu_calibration.has_value()) << "an earlier sender's";
    EXPECT_EQ(kept.descriptions.at(1).imu_calibration, calibration);
    EXPECT_TRUE(std::equal(without.begin() + 20, without.end(), with.begin() + 20))
        << "an earlier reader finds each field where it was";
}

TEST(Records, NumbersThatNoCameraHasCountAsNotAnnounced) {
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInfinite = std::numeric_limits<float>::infinity();
    for (const int fps : {-1, INT32_MIN, kMaxFps + 1, INT32_MAX}) {
        for (const float bad : {kNan, kInfinite, -kInfinite}) {
            DescriptionRecord sent = someDescription();
            sent.fps = fps;
            sent.pose.y = bad;
            sent.imu_calibration.emplace().values[9] = bad;
            std::vector<uint8_t> bytes;
            Kept kept;

            writeDescription(bytes, sent);
            ASSERT_TRUE(RecordReader().read(bytes.data(), bytes.size(), kept));

            const DescriptionRecord& got = kept.descriptions.at(0);
            EXPECT_EQ(got.fps, 0) << fps;
            EXPECT_FALSE(got.pose_known);
            EXPECT_EQ(got.pose.y, 0.0F);
            EXPECT_FALSE(got.imu_calibration.has_value());
        }
    }
}

TEST(Records, MoreSamplesThanFitAreLeftForTheNextRecord) {
    const auto packets = test::numberedSamples(3, 1'000'000'000, 2000);
    std::vector<uint8_t> bytes;
    Kept kept;
    RecordReader reader;

    std::size_t done = 0;
    while (done < packets.size()) {
        bytes.clear();
        const std::size_t written = writeFrameRecord(bytes, someFrame(), packets.data() + done, packets.size() - done);
        ASSERT_GT(written, 0U);
        EXPECT_LT(bytes.size(), 65000U);
        EXPECT_TRUE(reader.read(bytes.data(), bytes.size(), kept));
        done += written;
    }

    EXPECT_TRUE(kept.samples == packets);
}

TEST(Records, UnknownRecordsAreSkipped) {
    std::vector<uint8_t> bytes(20, 0x06);
    bytes[16] = 3;  // the length, after a key that nobody knows
    writeFrameRecord(bytes, someFrame(), nullptr, 0);
    Kept kept;

    EXPECT_TRUE(RecordReader().read(bytes.data(), bytes.size(), kept));

    EXPECT_EQ(kept.frames.size(), 1U);
}

TEST(Records, EveryTruncationIsRefusedAndNoDamageIsReadOutside) {
    const auto packets = test::numberedSamples(3, 1'000'000'000, 4);
    std::vector<uint8_t> frame;
    std::vector<uint8_t> description;
    writeFrameRecord(frame, someFrame(), packets.data(), packets.size());
    writeDescription(description, someDescription());
    DescriptionRecord longest = someDescription();
    longest.imu_calibration.emplace();
    std::vector<uint8_t> extended;
    writeDescription(extended, longest);

    std::mt19937 random(5);
    for (const std::vector<uint8_t>& whole : {frame, description, extended}) {
        for (std::size_t size = 1; size < whole.size(); ++size) {
            Kept kept;
            const std::vector<uint8_t> cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_FALSE(RecordReader().read(cut.data(), cut.size(), kept)) << size;
            EXPECT_TRUE(kept.frames.empty() && kept.descriptions.empty());
        }
        for (int round = 0; round < 2000; ++round) {
            std::vector<uint8_t> damaged = whole;
            damaged[random() % damaged.size()] ^= static_cast<uint8_t>(1U << random() % 8);
            Kept kept;
            (void)RecordReader().read(damaged.data(), damaged.size(), kept);
            EXPECT_LE(kept.samples.size(), kMaxImuPerRecord);
        }
    }
}

TEST(Records, SizesThatNoCameraHasAreRefused) {
    const struct {
        uint32_t width, height;
    } sizes[] = {{0, 600}, {960, 0}, {961, 600}, {960, 601}, {100'000, 600}, {960, 0xFFFFFFFE}};
    for (const auto& size : sizes) {
        DescriptionRecord record = someDescription();
        record.camera.width = size.width;
        record.camera.height = size.height;
        std::vector<uint8_t> bytes;
        Kept kept;

        writeDescription(bytes, record);

        EXPECT_FALSE(RecordReader().read(bytes.data(), bytes.size(), kept)) << size.width << " x " << size.height;
    }
}

}  // namespace
}  // namespace oru::stream
