#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "backends/stream/receiver/ImuStore.hpp"
#include "backends/stream/receiver/coded_queue.hpp"
#include "backends/stream/receiver/image_ring.hpp"
#include "backends/stream/sender/RetransmitBuffer.hpp"
#include "backends/stream/sender/frame_rate.hpp"
#include "doubles/ScriptedClock.hpp"

namespace oru::stream {
namespace {

std::vector<IMUPacket> samplesAt(const std::vector<uint64_t>& times) {
    std::vector<IMUPacket> packets;
    for (const uint64_t time : times) {
        IMUPacket packet;
        packet.imu_timestamp = time;
        packets.push_back(packet);
    }
    return packets;
}

TEST(ImuStore, GivesWhatIsEarlierInOrderAndOnlyOnce) {
    ImuStore store;
    store.add(samplesAt({30, 10, 20, 40}));

    EXPECT_TRUE(store.takeBefore(30) == samplesAt({10, 20}));
    EXPECT_TRUE(store.takeBefore(30).empty());
    EXPECT_TRUE(store.takeBefore(41) == samplesAt({30, 40}));
}

TEST(ImuStore, TheNewestStaysAfterItWasTaken) {
    ImuStore store;
    IMUPacket packet;
    EXPECT_FALSE(store.newest(packet));

    store.add(samplesAt({30, 20}));
    (void)store.takeBefore(100);

    EXPECT_TRUE(store.newest(packet));
    EXPECT_EQ(packet.imu_timestamp, 20U);
}

TEST(ImuStore, IsBoundedAndCountsWhatItDrops) {
    ImuStore store;
    for (uint64_t i = 0; i < ImuStore::kCapacity + 10; ++i) {
        store.add(samplesAt({i}));
    }

    const auto rest = store.takeBefore(UINT64_MAX);

    EXPECT_EQ(rest.size(), ImuStore::kCapacity);
    EXPECT_EQ(rest.front().imu_timestamp, 10U);
    EXPECT_EQ(store.dropped(), 10U);
}

TEST(ImuStore, WhenTimeGoesBackTheOldRestDoesNotComeLater) {
    constexpr uint64_t kSecond = 1'000'000'000;
    ImuStore store;
    store.add(samplesAt({10 * kSecond, 10 * kSecond + 1}));
    store.add(samplesAt({2 * kSecond}));

    EXPECT_TRUE(store.takeBefore(20 * kSecond) == samplesAt({2 * kSecond}));
    EXPECT_EQ(store.dropped(), 2U);
}

TEST(ImuStore, ATimeAtTheEndOfItsRangeDropsNothing) {
    ImuStore store;
    store.add(samplesAt({UINT64_MAX - 2, UINT64_MAX - 1}));

    EXPECT_EQ(store.takeBefore(UINT64_MAX).size(), 2U);
    EXPECT_EQ(store.dropped(), 0U);
}

TEST(CodedQueue, IsDrainedWhenTheReaderHasAskedForMore) {
    CodedQueue queue;
    CodedImage image;
    EXPECT_TRUE(queue.isDrained());

    ASSERT_TRUE(queue.push(image));
    EXPECT_FALSE(queue.isDrained());
    ASSERT_TRUE(queue.pop(image, 0));
    EXPECT_FALSE(queue.isDrained()) << "the image is being decoded";
    EXPECT_FALSE(queue.pop(image, 0));
    EXPECT_TRUE(queue.isDrained());
}

std::vector<IMUPacket> allOf(const RetransmitBuffer& buffer, uint64_t first, uint64_t last) {
    std::vector<IMUPacket> packets;
    while (first < last) {
        const auto run = buffer.run(first, last);
        packets.insert(packets.end(), run.begin(), run.end());
        first += run.size();
    }
    return packets;
}

TEST(RetransmitBuffer, KeepsTheNewestInOrderAcrossItsEnd) {
    RetransmitBuffer buffer;
    EXPECT_EQ(buffer.begin(), buffer.end());
    for (uint64_t i = 0; i < RetransmitBuffer::kCapacity + 10; ++i) {
        buffer.append(samplesAt({100 + i}));
    }

    EXPECT_EQ(buffer.begin(), 10U);
    EXPECT_EQ(buffer.end(), RetransmitBuffer::kCapacity + 10);
    const uint64_t last = RetransmitBuffer::kCapacity + 2;
    EXPECT_TRUE(allOf(buffer, last - 4, last) ==
                samplesAt({100 + last - 4, 100 + last - 3, 100 + last - 2, 100 + last - 1}));
}

TEST(RetransmitBuffer, FindsWhereAReceiverThatComesBackGoesOn) {
    RetransmitBuffer buffer;
    buffer.append(samplesAt({10, 20, 10, 30}));

    EXPECT_EQ(buffer.after(10), 3U) << "the newest one of that time";
    EXPECT_EQ(buffer.after(30), buffer.end());
    EXPECT_FALSE(buffer.after(15).has_value());
    for (uint64_t i = 0; i < RetransmitBuffer::kCapacity; ++i) {
        buffer.append(samplesAt({100 + i}));
    }
    EXPECT_FALSE(buffer.after(30).has_value());
    EXPECT_EQ(buffer.after(100), 5U);
}

class Ring : public testing::Test {
protected:
    Ring() {
        ring.resize(1);
        ring.setPatience(50);
    }
    void write(uint64_t id) {
        *ring.beginWrite() = static_cast<unsigned char>(id);
        ring.publish({id, id, false, {}});
    }
    uint64_t read() {
        unsigned char image = 0;
        const auto info = ring.read(&image, 0);
        EXPECT_TRUE(!info || image == static_cast<unsigned char>(info->id));
        return info ? info->id : 0;
    }

    doubles::ScriptedClock clock;
    FrameLedger ledger;
    ImageRing ring{clock, ledger};
};

TEST_F(Ring, GivesABurstInOrder) {
    for (uint64_t id = 1; id <= 4; ++id) {
        write(id);
    }

    for (uint64_t id = 1; id <= 4; ++id) {
        EXPECT_EQ(read(), id);
    }
    EXPECT_EQ(read(), 0U);
    EXPECT_EQ(ledger.counters().delivered, 4U);
}

TEST_F(Ring, GivesTheNewestToAReaderThatIsBehind) {
    write(1);
    write(2);
    clock.now += 60;
    write(3);

    EXPECT_EQ(read(), 3U);
    EXPECT_EQ(ledger.counters().overwritten, 2U);
}

TEST_F(Ring, OverwritesTheOldestWhenFull) {
    for (uint64_t id = 1; id <= 7; ++id) {
        write(id);
    }

    EXPECT_EQ(read(), 4U);
    EXPECT_EQ(ledger.counters().overwritten, 3U);
}

TEST_F(Ring, WaitsForAReaderThatKeepsUp) {
    ring.setPatience(5'000'000'000);
    write(1);
    EXPECT_EQ(read(), 1U);
    for (uint64_t id = 2; id <= 5; ++id) {
        write(id);
    }

    std::thread writer([this] { write(6); });
    for (uint64_t id = 2; id <= 5; ++id) {
        EXPECT_EQ(read(), id);
    }
    writer.join();

    EXPECT_EQ(read(), 6U);
    EXPECT_EQ(ledger.counters().overwritten, 0U);
}

TEST_F(Ring, AReaderAndAWriterAtOnceNeverSeeHalfAnImage) {
    std::thread writer([this] {
        for (uint64_t id = 1; id <= 20'000; ++id) {
            write(id);
        }
    });
    uint64_t last = 0;
    while (last < 20'000) {
        const uint64_t id = read();
        EXPECT_TRUE(id == 0 || id > last);
        last = id == 0 ? last : id;
    }
    writer.join();

    const FrameCounters counters = ledger.counters();
    EXPECT_EQ(counters.produced, 20000U);
    EXPECT_EQ(counters.produced, counters.delivered + counters.overwritten);
}

std::vector<int> takenBy(FrameDecimator& decimator, const std::vector<double>& milliseconds) {
    std::vector<int> taken;
    for (std::size_t i = 0; i < milliseconds.size(); ++i) {
        if (decimator.take(static_cast<uint64_t>(1e9 + milliseconds[i] * 1e6))) {
            taken.push_back(static_cast<int>(i));
        }
    }
    return taken;
}

std::vector<double> steady(double period, int count) {
    std::vector<double> times;
    for (int i = 0; i < count; ++i) {
        times.push_back(period * i + (i % 3 - 1) * 0.4);
    }
    return times;
}

TEST(FrameDecimator, TakesEveryNthFrameExactly) {
    const struct {
        int source, target;
        std::size_t taken;
    } cases[] = {{30, 30, 120}, {30, 15, 60}, {60, 15, 30}, {60, 30, 60}, {120, 15, 15}, {30, 0, 120}, {25, 30, 120}};
    for (const auto& rates : cases) {
        FrameDecimator decimator(rates.target);

        const auto taken = takenBy(decimator, steady(1000.0 / rates.source, 120));

        EXPECT_EQ(taken.size(), rates.taken) << rates.source << " to " << rates.target;
    }
}

TEST(FrameDecimator, KeepsTheRhythmWhenTheSourceLosesAFrame) {
    FrameDecimator decimator(15);
    std::vector<double> times = steady(1000.0 / 30, 20);
    times.erase(times.begin() + 8);

    const auto taken = takenBy(decimator, times);

    EXPECT_EQ(taken, (std::vector<int>{0, 2, 4, 6, 8, 9, 11, 13, 15, 17}));
}

TEST(FrameDecimator, TakesEverythingWhenTimesFitNoRate) {
    FrameDecimator decimator(30);

    EXPECT_EQ(takenBy(decimator, {0, 0.001, 0.002, 0.003, 0.004}).size(), 5U);
}

TEST(LoadPacer, SkipsEvenlyWhileTheEncoderIsTooSlowAndStopsWhenItIsNot) {
    LoadPacer pacer(30);
    int warnings = 0;
    bool overflows = false;
    const auto feed = [&](uint64_t milliseconds, int frames) {
        int admitted = 0;
        for (int i = 0; i < frames; ++i) {
            if (pacer.admit()) {
                ++admitted;
                if (overflows) {
                    pacer.noteOverflow();
                }
                warnings += pacer.measured(milliseconds * 1'000'000) ? 1 : 0;
            }
        }
        return admitted;
    };

    EXPECT_EQ(feed(20, 60), 60);
    EXPECT_EQ(feed(50, 30), 30) << "the buffers take a slow moment";
    overflows = true;
    feed(80, 400);
    EXPECT_EQ(pacer.every(), 3U);
    EXPECT_EQ(feed(80, 30), 10);
    feed(10, 400);
    EXPECT_EQ(pacer.every(), 1U);
    EXPECT_EQ(warnings, 1);
}

TEST(BitrateControl, GoesDownWithTheNetworkAndSlowlyUpAgain) {
    BitrateControl control(10'000);
    BitrateControl::Observation seen;
    const auto step = [&](uint64_t repeated, double backlog) {
        seen.sent_packets += 1000;
        seen.repeated_packets += repeated;
        seen.backlog_ms = backlog;
        return control.update(seen);
    };

    EXPECT_EQ(step(20, 50.0), 10000U);
    EXPECT_EQ(step(200, 50.0), 7500U);
    EXPECT_EQ(step(0, 300.0), 5625U);
    for (int i = 0; i < 30; ++i) {
        step(500, 50.0);
    }
    EXPECT_EQ(control.current(), 2000U);
    for (int i = 0; i < 4; ++i) {
        step(0, 20.0);
    }
    EXPECT_EQ(control.current(), 3000U);
    for (int i = 0; i < 100; ++i) {
        step(0, 20.0);
    }
    EXPECT_EQ(control.current(), 10000U);
}

}  // namespace
}  // namespace oru::stream
