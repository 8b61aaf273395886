#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <functional>
#include <iterator>
#include <span>

#include "backends/stream/receiver/Reassembler.hpp"
#include "backends/stream/stream_fixture.hpp"
#include "backends/stream/wire/TsWriter.hpp"

namespace oru::stream {
namespace {

constexpr std::size_t kPacket = TsDemuxer::kPacketBytes;

/// Builds the transport packets of made-up coded images and feeds them to an intake.
class Intake : public testing::Test {
protected:
    Intake() { writer.open(VideoCodec::H264); }

    std::vector<uint8_t> packets(uint64_t id, bool key, std::size_t size = 3000) {
        // An access unit delimiter first, so that the writer has nothing to add.
        std::vector<uint8_t> image = {0, 0, 0, 1, 9, 0xF0, 0, 0, 0, 1, static_cast<uint8_t>(key ? 0x65 : 0x41)};
        while (image.size() < size) {
            image.push_back(static_cast<uint8_t>(image.size() * 31 + id) | 1);
        }
        FrameRecord record;
        record.key_frame = key;
        record.has_image = true;
        record.image_bytes = static_cast<uint32_t>(image.size());
        record.image_crc = checksum(image.data(), image.size());
        record.session = session;
        record.frame_id = id;
        record.skipped_frames = skipped;
        std::vector<uint8_t> bytes;
        writeFrameRecord(bytes, record, samples.data(), samples.size());
        pts += 3000;
        writer.begin(pts, key);
        writer.writeVideo(image, key);
        writer.writeData(bytes);
        const auto block = writer.block();
        return {block.begin(), block.end()};
    }
    /// What a sender that took `lastId` frames says at its end.
    std::vector<uint8_t> goodbye(uint64_t lastId) {
        FrameRecord record;
        record.goodbye = true;
        record.session = session;
        record.frame_id = lastId;
        std::vector<uint8_t> bytes;
        writeFrameRecord(bytes, record, samples.data(), samples.size());
        writer.begin(pts += 3000, false);
        writer.writeData(bytes);
        const auto block = writer.block();
        return {block.begin(), block.end()};
    }
    void feed(const std::vector<uint8_t>& bytes) { reassembler.feed(bytes.data(), bytes.size()); }
    std::vector<uint64_t> taken() {
        std::vector<uint64_t> ids;
        CodedImage image;
        while (queue.pop(image, 0)) {
            ids.push_back(image.record.frame_id);
        }
        return ids;
    }

    TsWriter writer;
    uint64_t pts = 0;
    uint64_t session = 1;
    uint64_t skipped = 0;
    std::vector<IMUPacket> samples;
    CodedQueue queue;
    ImuStore store;
    FrameLedger ledger;
    std::atomic<bool> keyFrameWanted{false};
    Reassembler reassembler{queue, store, ledger, keyFrameWanted, [](DescriptionRecord&&) {}};
};

using Ids = std::vector<uint64_t>;

TEST_F(Intake, WholeFramesPassInOrder) {
    for (uint64_t id = 10; id < 15; ++id) {
        feed(packets(id, id == 10));
    }

    EXPECT_EQ(taken(), (Ids{10, 11, 12, 13, 14}));
    EXPECT_EQ(ledger.counters().lost(), 0U);
    EXPECT_FALSE(keyFrameWanted);
}

TEST_F(Intake, NothingPassesBeforeTheFirstKeyFrame) {
    feed(packets(1, false));
    feed(packets(2, true));

    EXPECT_EQ(taken(), (Ids{2}));
    EXPECT_TRUE(keyFrameWanted);
    EXPECT_EQ(ledger.counters().damaged, 1U);
}

TEST_F(Intake, AfterAnyDamageNothingPassesBeforeAKeyFrame) {
    const struct {
        const char* name;
        std::function<void(std::vector<uint8_t>&)> damage;
    } cases[] = {
        {"a packet in the picture is lost",
         [](auto& bytes) { bytes.erase(bytes.begin() + 5 * kPacket, bytes.begin() + 6 * kPacket); }},
        {"sixteen packets are lost, so that the counters fit",
         [](auto& bytes) { bytes.erase(bytes.begin() + 5 * kPacket, bytes.begin() + 21 * kPacket); }},
        {"a bit of the picture is wrong", [](auto& bytes) { bytes[5 * kPacket + 100] ^= 4; }},
        {"the record is lost", [](auto& bytes) { bytes.resize(bytes.size() - kPacket); }},
        {"the first packets are lost", [](auto& bytes) { bytes.erase(bytes.begin(), bytes.begin() + 4 * kPacket); }},
    };
    uint64_t id = 1;
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        feed(packets(id, true));
        std::vector<uint8_t> damaged = packets(id + 1, false, 6000);
        test.damage(damaged);
        const uint64_t lostBefore = ledger.counters().lost();
        keyFrameWanted = false;

        feed(damaged);
        feed(packets(id + 2, false));
        const bool asked = keyFrameWanted;
        feed(packets(id + 3, true));

        EXPECT_EQ(taken(), (Ids{id, id + 3}));
        EXPECT_TRUE(asked);
        EXPECT_EQ(ledger.counters().lost(), lostBefore + 2);
        id += 4;
    }
}

TEST_F(Intake, MissingFramesAreBookedToTheNetworkAndSkippedOnesToTheSender) {
    feed(packets(1, true));
    skipped = 3;
    feed(packets(5, true));

    EXPECT_EQ(taken(), (Ids{1, 5}));
    EXPECT_EQ(ledger.counters().network, 3U);
    EXPECT_EQ(ledger.counters().sender_busy, 3U);
}

TEST_F(Intake, AFrameThatWasThereBeforeIsNotTakenAgain) {
    feed(packets(7, true));
    feed(packets(6, true));
    feed(packets(7, true));

    EXPECT_EQ(taken(), (Ids{7}));
    EXPECT_EQ(ledger.counters().lost(), 0U);
}

TEST_F(Intake, AnotherSessionStartsAnewAndDropsTheSamplesOfTheOldOne) {
    samples = test::numberedSamples(1, test::numberedTime(1), 3);
    feed(packets(900, true));
    samples = test::numberedSamples(2, test::numberedTime(2), 2);
    session = 2;
    feed(packets(1, true));

    EXPECT_EQ(taken(), (Ids{900, 1}));
    EXPECT_EQ(ledger.counters().lost(), 0U);
    EXPECT_TRUE(store.takeBefore(UINT64_MAX) == samples);
}

TEST_F(Intake, AFullQueueLosesFramesWithItsOwnCauseAndThenNeedsAKeyFrame) {
    for (uint64_t id = 0; id < CodedQueue::kCapacity + 2; ++id) {
        feed(packets(id, id == 0, 400));
    }
    EXPECT_EQ(taken().size(), CodedQueue::kCapacity);

    feed(packets(CodedQueue::kCapacity + 2, false));

    EXPECT_TRUE(taken().empty());
    EXPECT_EQ(ledger.counters().queue_full, 1U);
    EXPECT_EQ(ledger.counters().damaged, 2U);
    EXPECT_TRUE(keyFrameWanted);
}

TEST_F(Intake, AGoodbyeBringsTheLastSamplesAndCountsTheFramesThatDidNotCome) {
    feed(packets(5, true));
    EXPECT_FALSE(reassembler.goodbye());
    samples = test::numberedSamples(2, test::numberedTime(2), 2);

    feed(goodbye(8));

    EXPECT_TRUE(reassembler.goodbye());
    EXPECT_EQ(taken(), (Ids{5}));
    EXPECT_EQ(ledger.counters().network, 3U);
    EXPECT_TRUE(store.takeBefore(UINT64_MAX) == samples);
    feed(goodbye(8));
    EXPECT_EQ(ledger.counters().network, 3U) << "counted once";

    reassembler.restart();
    EXPECT_TRUE(reassembler.goodbye()) << "a new connection alone does not begin the stream again";
    session = 2;
    feed(packets(1, true));
    EXPECT_FALSE(reassembler.goodbye());
    EXPECT_EQ(taken(), (Ids{1}));
}

TEST_F(Intake, RubbishBetweenFramesChangesNothing) {
    std::vector<uint8_t> rubbish(40 * kPacket);
    uint32_t state = 1;
    for (uint8_t& byte : rubbish) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<uint8_t>(state >> 24);
    }
    feed(packets(1, true));
    feed(rubbish);
    feed(packets(2, false));

    EXPECT_EQ(taken(), (Ids{1, 2}));
}

/// Keeps what a demultiplexer finds, in its order.
class PacketKeeper final : public TsSink {
public:
    void onVideo(PesPacket& packet) override { found.push_back({true, packet}); }
    void onData(PesPacket& packet) override { found.push_back({false, packet}); }

    struct Entry {
        bool video;
        PesPacket packet;
    };
    std::vector<Entry> found;
};

TEST_F(Intake, ADataPacketForOneReceiverIsWholeAndLeadsOnToWhatFollows) {
    PacketKeeper keeper;
    TsDemuxer demuxer(keeper);
    const auto feedDemuxer = [&](const std::vector<uint8_t>& bytes) { demuxer.feed(bytes.data(), bytes.size()); };
    feedDemuxer(packets(1, true));
    std::vector<std::size_t> sizes = {56'000, 65527};
    for (std::size_t size = 1; size < 17 * kPacket; size += size < 400 ? 1 : 37) {
        sizes.push_back(size);
    }

    for (const std::size_t size : sizes) {
        SCOPED_TRACE(size);
        const std::vector<uint8_t> next = packets(2, false, 100);
        std::vector<uint8_t> payload(size);
        for (std::size_t i = 0; i < size; ++i) {
            payload[i] = static_cast<uint8_t>(i * 7 + size);
        }
        std::vector<uint8_t> own;
        writeDataPackets(own, {payload, 0x1ABCDEF01, writer.firstDataCounter()});
        keeper.found.clear();
        feedDemuxer(own);
        feedDemuxer(next);

        ASSERT_EQ(own.size() % kPacket, 0U);
        ASSERT_EQ(keeper.found.size(), 3U);
        const PesPacket& alone = keeper.found[0].packet;
        EXPECT_TRUE(alone.payload == payload);
        EXPECT_EQ(alone.pts, 0x1ABCDEF01U);
        EXPECT_FALSE(alone.damaged || keeper.found[1].packet.damaged || keeper.found[2].packet.damaged);
        ASSERT_EQ(demuxer.continuityErrors(), 0U);
    }
}

TEST_F(Intake, TheTablesOfABlockEndWhereItsTracksBegin) {
    const std::vector<uint8_t> withTables = packets(1, true);
    const std::size_t tables = writer.tableBytes();

    EXPECT_GT(tables, kPacket);
    EXPECT_EQ(tables % kPacket, 0U);
    EXPECT_EQ(withTables[tables + 1] & 0x1F, kVideoPid >> 8);
    for (int i = 0; i < 5; ++i) {
        (void)packets(2, false);
        EXPECT_EQ(writer.tableBytes(), 0U);
    }
    (void)packets(3, false);
    EXPECT_EQ(writer.tableBytes(), tables) << "0.2 s later";
}

/// The packets of one track or table, one behind the other.
std::vector<uint8_t> packetsOf(uint16_t pid, std::span<const uint8_t> stream) {
    std::vector<uint8_t> result;
    for (std::size_t at = 0; at + kPacket <= stream.size(); at += kPacket) {
        const auto packet = stream.subspan(at, kPacket);
        if (((packet[1] & 0x1F) << 8 | packet[2]) == pid) {
            result.insert(result.end(), packet.begin(), packet.end());
        }
    }
    return result;
}

TEST(TsWriter, WritesARecordedStreamOfAnEarlierSenderByteForByte) {
    std::ifstream file(ORU_STREAM_SAMPLE, std::ios::binary);
    const std::vector<uint8_t> recorded{std::istreambuf_iterator<char>(file), {}};
    PacketKeeper keeper;
    TsDemuxer demuxer(keeper);
    demuxer.feed(recorded.data(), recorded.size());
    ASSERT_EQ(demuxer.continuityErrors(), 0U);
    ASSERT_EQ(demuxer.videoCodec(), VideoCodec::H264);
    ASSERT_EQ(keeper.found.size(), 7U) << "a description, and three images with their records";

    TsWriter writer;
    writer.open(VideoCodec::H264);
    std::vector<uint8_t> written;
    for (std::size_t i = 0; i < keeper.found.size(); ++i) {
        const auto& [video, packet] = keeper.found[i];
        writer.begin(packet.pts, false);
        if (video) {
            writer.writeVideo(packet.payload, i == 1);
        } else {
            writer.writeData(packet.payload);
        }
        written.insert(written.end(), writer.block().begin(), writer.block().end());
    }

    for (const uint16_t pid : {kVideoPid, kDataPid}) {
        EXPECT_EQ(packetsOf(pid, written), packetsOf(pid, recorded)) << pid;
    }
    constexpr uint16_t kMapPid = 0x1000;
    for (const uint16_t pid : {uint16_t{0}, kMapPid}) {
        auto first = packetsOf(pid, recorded);
        first.resize(kPacket);
        EXPECT_EQ(packetsOf(pid, written), first) << pid;
    }
}

TEST(TsWriter, PutsADelimiterBeforeAnAccessUnitThatHasNone) {
    const std::vector<uint8_t> h264 = {0, 0, 0, 1, 0x09, 0xF0};
    const std::vector<uint8_t> h265 = {0, 0, 0, 1, 0x46, 0x01, 0x50};
    const struct {
        VideoCodec codec;
        std::vector<uint8_t> unit;
        std::vector<uint8_t> delimiter;
    } cases[] = {
        {VideoCodec::H264, {0, 0, 0, 1, 0x65, 7}, h264},  {VideoCodec::H264, {0, 0, 1, 0x67, 7}, h264},
        {VideoCodec::H264, {0, 0, 1, 0x09, 0xF0}, {}},    {VideoCodec::H265, {0, 0, 0, 1, 0x40, 1}, h265},
        {VideoCodec::H265, {0, 0, 1, 0x46, 1, 0x50}, {}}, {VideoCodec::H264, {0, 0, 1}, h264},
    };
    for (const auto& test : cases) {
        PacketKeeper keeper;
        TsDemuxer demuxer(keeper);
        TsWriter writer;
        writer.open(test.codec);
        writer.begin(1, true);
        writer.writeVideo(test.unit, true);
        writer.writeData(std::array<uint8_t, 1>{});
        demuxer.feed(writer.block().data(), writer.block().size());

        std::vector<uint8_t> expected = test.delimiter;
        expected.insert(expected.end(), test.unit.begin(), test.unit.end());
        ASSERT_EQ(keeper.found.size(), 2U);
        EXPECT_EQ(keeper.found[0].packet.payload, expected);
        EXPECT_EQ(demuxer.videoCodec(), test.codec);
    }
}

}  // namespace
}  // namespace oru::stream
