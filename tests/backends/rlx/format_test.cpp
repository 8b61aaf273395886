#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>

#include "backends/rlx/container/container.hpp"
#include "backends/rlx/container/ebml.hpp"
#include "backends/rlx/recording_fixture.hpp"
#include "backends/rlx/records/crc32c.hpp"
#include "doubles/golden_sample.hpp"

namespace oru::rlx {

namespace {

using rlx_test::Scene;

FrameRecord sampleFrame(bool key) {
    const Scene scene;
    FrameRecord frame;
    frame.recording_id = 0x1122334455667788;
    frame.number = 7;
    frame.time_ns = scene.time(7);
    frame.time_ms = 233;
    frame.reference_delta = key ? 0 : 33;
    frame.key = key;
    frame.image_size = 100;
    frame.image_crc = 0xDEADBEEF;
    frame.metadata = scene.metadata(7);
    frame.has_imu = true;
    frame.imu = scene.imu(7);
    frame.packets = scene.packets(7);
    return frame;
}

}  // namespace

TEST(Crc32c, MatchesPublishedValuesOnBothPaths) {
    const struct {
        std::string data;
        uint32_t crc;
    } cases[] = {
        // RFC 3720, appendix B.4, and the check value of the polynomial
        {std::string(32, '\0'), 0x8A9136AA},
        {std::string(32, '\xFF'), 0x62A8AB43},
        {"123456789", 0xE3069283},
        {"", 0},
    };
    for (const auto& sample : cases) {
        EXPECT_EQ(crc32c(sample.data.data(), sample.data.size()), sample.crc);
        EXPECT_EQ(crc32cByTable(sample.data.data(), sample.data.size()), sample.crc);
    }
    const std::vector<unsigned char> image = Scene{}.image(3);
    const uint32_t first = crc32c(image.data(), 1001);
    EXPECT_EQ(crc32c(image.data() + 1001, image.size() - 1001, first), crc32cByTable(image.data(), image.size()));
}

TEST(FrameRecords, ComeBackExactlyAndRefuseEveryFlippedBit) {
    const FrameRecord frame = sampleFrame(true);
    Bytes bytes;
    encodeFrame(frame, 2, bytes);
    FrameRecord read;

    ASSERT_TRUE(decodeFrame(bytes, read));

    EXPECT_EQ(read.time_ns, frame.time_ns);
    EXPECT_EQ(read.imu, frame.imu);
    EXPECT_EQ(read.packets, frame.packets);
    EXPECT_EQ(std::memcmp(read.metadata.bytes, frame.metadata.bytes, sizeof frame.metadata.bytes), 0);
    for (std::size_t bit = 0; bit < bytes.size() * 8; ++bit) {
        bytes[bit / 8] ^= static_cast<uint8_t>(1U << (bit % 8));
        ASSERT_FALSE(decodeFrame(bytes, read)) << bit;
        bytes[bit / 8] ^= static_cast<uint8_t>(1U << (bit % 8));
    }
}

// A frame record as recordings have it, in three parts: all up to the metadata, which is zero, and the rest.
constexpr std::string_view kStoredFacts =
    "524C5846020000008877665544332211070000000000000015CD853DFE9C9717E900000000000000210000000000000064000000EFBEADDE"
    "02000000030000000000000028010000000000000000000000000000";
constexpr std::string_view kStoredPacketAndChecksum =
    "181716151413121128272625242322213837363534333231FCFCFDFE0000A03F00002040000070400000A0400000C8400000F04000000C41"
    "00002041000034410000484100005C41000070410000824100008C41000096410000A0410000AA410000B4410000BE410000C8410000D241"
    "0000DC410000E6410000F0410000FA41000002420000074200000C42000011420000164200001B42000020420000254200002A4200002F42"
    "000034420000394200003E42000043420000484200004D42A501010101000000000052420000574200005C42000061420000664200006B42"
    "00007042444342410000754200007A4200007F420000824200808442000087420080894200008C4200808E42000091420080934200009642"
    "0080984200009B4200809D4200000000EB7B8D2A";

TEST(FrameRecords, KeepTheBytesOfTheFormat) {
    FrameRecord frame = sampleFrame(false);
    frame.time_ns = 1'700'000'000'123'456'789;
    frame.lost_before = 3;
    frame.metadata = {};
    frame.imu = test::distinctSample();
    frame.packets.clear();
    Bytes stored = test::fromHex(kStoredFacts);
    stored.resize(stored.size() + sizeof frame.metadata.bytes);
    std::ranges::copy(test::fromHex(kStoredPacketAndChecksum), std::back_inserter(stored));
    Bytes bytes;
    FrameRecord read;

    encodeFrame(frame, 2, bytes);

    EXPECT_EQ(bytes, stored);
    ASSERT_TRUE(decodeFrame(stored, read));
    EXPECT_EQ(read.imu, frame.imu);
}

TEST(FrameRecords, VersionOneLeavesOutTheImu) {
    Bytes bytes;
    encodeFrame(sampleFrame(true), 1, bytes);
    FrameRecord read;

    ASSERT_TRUE(decodeFrame(bytes, read));

    EXPECT_FALSE(read.has_imu);
    EXPECT_TRUE(read.packets.empty());
}

TEST(HeaderRecords, ComeBackExactlyAndVersionOneHasNoFlip) {
    for (const int version : {1, 2}) {
        HeaderRecord header;
        header.facts = Scene{}.header();
        header.facts.version = version;
        header.facts.decompression_platform = true;
        header.recording_id = 99;
        header.codec_private = {1, 2, 3};
        header.tells_colours = version == 1;
        Bytes bytes;
        encodeHeader(header, bytes);
        bytes.push_back(0xAA);  // what follows is not its own

        const std::optional<HeaderRecord> read = decodeHeader(bytes);

        ASSERT_TRUE(read.has_value());
        EXPECT_EQ(read->facts.flipped, version == 2);
        EXPECT_EQ(read->facts.decompression_platform, version == 2);
        EXPECT_EQ(read->facts.calibration_text, header.facts.calibration_text);
        EXPECT_EQ(read->facts.imu_to_camera, header.facts.imu_to_camera);
        EXPECT_EQ(read->facts.imu_calibration, header.facts.imu_calibration);
        EXPECT_EQ(read->codec_private, header.codec_private);
        EXPECT_EQ(read->tells_colours, version == 1);
    }
}

TEST(Clusters, FramingIsRecognisedOnlyAsWritten) {
    for (const bool key : {true, false}) {
        const FrameRecord frame = sampleFrame(key);
        Bytes record;
        encodeFrame(frame, 2, record);
        Bytes prefix;
        buildPrefix(frame, record.size(), prefix);
        Bytes suffix;
        buildSuffixFraming(frame, record.size(), suffix);
        const std::size_t framing = suffix.size();
        suffix.insert(suffix.end(), record.begin(), record.end());
        FrameRecord read;
        Bytes scratch;

        const std::optional<ClusterShape> shape = readPrefix(prefix);

        ASSERT_TRUE(shape.has_value());
        EXPECT_EQ(prefix.size(), kPrefixSize);
        EXPECT_EQ(shape->total, prefix.size() + 100 + suffix.size());
        EXPECT_EQ(shape->image_size, 100U);
        EXPECT_TRUE(readSuffix(prefix, suffix, frame.recording_id, read, scratch));
        EXPECT_FALSE(readSuffix(prefix, suffix, frame.recording_id + 1, read, scratch))
            << "a frame of another recording";
        for (std::size_t i = 0; i < prefix.size() + framing; ++i) {
            uint8_t& byte = i < prefix.size() ? prefix[i] : suffix[i - prefix.size()];
            byte ^= 0x10;
            EXPECT_FALSE(readPrefix(prefix) && readPrefix(prefix)->total == shape->total &&
                         readSuffix(prefix, suffix, frame.recording_id, read, scratch))
                << i;
            byte ^= 0x10;
        }
    }
}

TEST(Elements, ReadEveryLegalWidthAndRefuseCutOnes) {
    const struct {
        Bytes bytes;
        bool legal;
        uint32_t id;
        uint64_t size;
    } cases[] = {
        {{0xEC, 0x82}, true, 0xEC, 2},
        {{0x42, 0x86, 0x40, 0x05}, true, 0x4286, 5},
        {{0x1F, 0x43, 0xB6, 0x75, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, true, ID_CLUSTER, kUnknownSize},
        {{0xEC, 0xFF}, true, 0xEC, kUnknownSize},
        {{0x00, 0x82}, false, 0, 0},
        {{0x1F, 0x43}, false, 0, 0},
        {{0xEC, 0x00}, false, 0, 0},
        {{0xEC}, false, 0, 0},
        {{}, false, 0, 0},
    };
    for (const auto& sample : cases) {
        Element element;
        ASSERT_EQ(readElement(sample.bytes, element), sample.legal);
        if (sample.legal) {
            EXPECT_EQ(element.id, sample.id);
            EXPECT_EQ(element.size, sample.size);
        }
    }
}

TEST(Indexes, ComeBackExactlyAndRefuseAnotherRecording) {
    HeaderRecord header;
    header.facts = Scene{}.header();
    header.recording_id = 5;
    std::vector<IndexEntry> entries;
    for (uint64_t i = 0; i < 1000; ++i) {
        entries.push_back({1000 + i * 500, i * 33'000'000, 500, i % 30 == 0, i * 33});
    }
    const Bytes trailer = buildTrailer(header, entries, 501'000);
    const std::optional<Footer> footer = readFooter(ByteView(trailer).last(kFooterSize));
    ASSERT_TRUE(footer.has_value());
    const ByteView payload = ByteView(trailer).subspan(footer->index_offset - 501'000, footer->index_size);

    const auto read = readIndex(payload, 5);

    ASSERT_TRUE(read.has_value());
    ASSERT_EQ(read->size(), entries.size());
    EXPECT_EQ(read->at(999).offset, entries[999].offset);
    EXPECT_EQ(read->at(30).key, true);
    EXPECT_EQ(read->at(31).key, false);
    EXPECT_FALSE(readIndex(payload, 6).has_value());
    EXPECT_FALSE(readIndex(payload.first(payload.size() - 1), 5).has_value());
}

}  // namespace oru::rlx
