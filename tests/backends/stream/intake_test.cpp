#include <gtest/gtest.h>

#include <functional>

#include "backends/stream/receiver/Reassembler.hpp"
#include "backends/stream/stream_fixture.hpp"
#include "backends/stream/wire/TsWriter.hpp"
#include "backends/stream/wire/data_packets.hpp"

namespace oru::stream {
namespace {

constexpr std::size_t kPacket = TsDemuxer::kPacketBytes;

/// Builds the transport packets of made-up coded images and feeds them to an intake.
class Intake : public testing::Test {
protected:
    Intake() { EXPECT_TRUE(muxer.open(VideoCodec::H264, 320, 240)); }

    std::vector<uint8_t> packets(uint64_t id, bool key, std::size_t size = 3000) {
        // An access unit delimiter first, so that the muxer has nothing to add.
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
        muxer.clear();
        pts += 3000;
        EXPECT_TRUE(muxer.writeVideo(image.data(), image.size(), pts, key));
        EXPECT_TRUE(muxer.writeData(bytes, pts));
        return muxer.finish();
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

    TsWriter muxer;
    int64_t pts = 0;
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

/// Keeps the data packets that a demultiplexer finds.
class DataKeeper final : public TsSink {
public:
    void onVideo(PesPacket&) override {}
    void onData(PesPacket& packet) override { found.push_back(packet); }

    std::vector<PesPacket> found;
};

TEST_F(Intake, ADataPacketForOneReceiverIsWholeAndLeadsOnToWhatFollows) {
    DataKeeper keeper;
    TsDemuxer demuxer(keeper);
    const auto feedDemuxer = [&](const std::vector<uint8_t>& bytes) { demuxer.feed(bytes.data(), bytes.size()); };
    feedDemuxer(packets(1, true));
    std::vector<std::size_t> sizes = {56000, 65527};
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
        writeDataPackets(own, {payload, 0x1ABCDEF01, firstDataCounter(next)});
        keeper.found.clear();
        feedDemuxer(own);
        feedDemuxer(next);

        ASSERT_EQ(own.size() % kPacket, 0U);
        ASSERT_EQ(keeper.found.size(), 2U);
        EXPECT_TRUE(keeper.found[0].payload == payload);
        EXPECT_EQ(keeper.found[0].pts, 0x1ABCDEF01U);
        EXPECT_FALSE(keeper.found[0].damaged);
        EXPECT_FALSE(keeper.found[1].damaged);
        ASSERT_EQ(demuxer.continuityErrors(), 0U);
    }
}

TEST_F(Intake, TheTablesOfABlockEndWhereItsTracksBegin) {
    const std::vector<uint8_t> withTables = packets(1, true);
    const std::vector<uint8_t> without = packets(2, false);

    const std::size_t tables = tableBytes(withTables);

    EXPECT_GT(tables, kPacket);
    EXPECT_EQ(tables % kPacket, 0U);
    EXPECT_EQ(withTables[tables + 1] & 0x1F, TsWriter::kVideoPid >> 8);
    EXPECT_EQ(tableBytes(without), 0U);
}

}  // namespace
}  // namespace oru::stream
