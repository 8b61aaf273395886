// Inertial samples of frames that a receiver does not get.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "backends/stream/Loopback.hpp"
#include "backends/stream/RawCaller.hpp"
#include "backends/stream/impairment_proxy.hpp"
#include "backends/stream/receiver/Reassembler.hpp"
#include "backends/stream/sender/FrameTransmitter.hpp"

namespace oru::test {
namespace {

using std::chrono::steady_clock;

/// Takes what comes apart as a receiver does, but keeps its connection whatever happens.
class Viewer {
public:
    explicit Viewer(uint16_t port, const std::string& id = "") : caller(port, RawCaller::Kind::VIEWER, "", true, id) {}

    /// Takes what is there.
    void read() {
        std::array<char, SRT_LIVE_MAX_PLSIZE> message{};
        int size = 0;
        while ((size = srt_recvmsg(caller.get(), message.data(), static_cast<int>(message.size()))) > 0) {
            reassembler.feed(reinterpret_cast<const uint8_t*>(message.data()), static_cast<std::size_t>(size));
            takeImages();
        }
        const auto packets = store.takeBefore(UINT64_MAX);
        samples.insert(samples.end(), packets.begin(), packets.end());
    }
    [[nodiscard]] SRTSOCKET socket() const { return caller.get(); }
    [[nodiscard]] FrameCounters lost() const { return ledger.counters(); }

    std::vector<IMUPacket> samples;  ///< in the order in which they came
    Timestamp newest = 0;            ///< of the intact image that came last

private:
    void takeImages() {
        stream::CodedImage image;
        while (queue.pop(image, 0)) {
            newest = image.record.timestamp_ns;
        }
    }

    RawCaller caller;
    stream::CodedQueue queue;
    stream::ImuStore store;
    stream::FrameLedger ledger;
    std::atomic<bool> keyFrameWanted{false};
    stream::Reassembler reassembler{queue, store, ledger, keyFrameWanted, [](stream::DescriptionRecord&&) {}};
};

/// How many samples are missing inside of what came; a million more for one that is doubled, altered or out of order.
uint64_t missing(const std::vector<IMUPacket>& got, int samplesEach) {
    constexpr uint64_t kWrong = 1'000'000;
    const auto count = static_cast<uint64_t>(samplesEach);
    std::vector<IMUPacket> ofFrame;
    const auto sample = [&](uint64_t index) -> const IMUPacket& {
        const uint64_t number = index / count;
        if (ofFrame.empty() || ofFrame[0].vector_1[0] != static_cast<float>(number)) {
            ofFrame = numberedSamples(number, numberedTime(number), samplesEach);
        }
        return ofFrame[index % count];
    };
    uint64_t index = 0;
    uint64_t result = 0;
    for (const IMUPacket& packet : got) {
        const uint64_t before = index;
        while (sample(index).imu_timestamp < packet.imu_timestamp) {
            ++index;
        }
        result += before == 0 ? 0 : index - before;
        result += sample(index) == packet ? 0 : kWrong;
        ++index;
    }
    return result;
}

TEST(ViewerId, TellsTheNewestSampleAndSurvivesStrangers) {
    EXPECT_EQ(stream::viewerId(0), "#!::r=cam,m=request");
    EXPECT_EQ(stream::newestSampleOf(stream::viewerId(1700000000000000001)), 1700000000000000001U);
    EXPECT_EQ(stream::newestSampleOf(stream::viewerId(UINT64_MAX)), UINT64_MAX);
    for (const char* id : {"", "after=5", "x,after=5", "#!::r=cam", "#!::r=cam,after=", "#!::r=cam,after=-1",
                           "#!::after,after=x", "#!::r=cam,after=99999999999999999999999"}) {
        EXPECT_EQ(stream::newestSampleOf(id), 0U) << id;
    }
}

/// A receiver whose acknowledgements take so long that what is under way is more than it may be behind: it is held back
/// again and again, though nothing is lost.
class FarReceiver : public Loopback {
protected:
    void start() {
        startSender(streamConfiguration(freePort()));
        proxy.emplace(settings.port, Impairment{0.0, kOneWayMs}, 6);
        quick.emplace(settings.port);
        far.emplace(proxy->port());
        poll.watch(quick->socket(), SRT_EPOLL_IN | SRT_EPOLL_ERR);
        poll.watch(far->socket(), SRT_EPOLL_IN | SRT_EPOLL_ERR);
        startSource();
    }
    template <class Condition>
    void readWhile(Condition&& condition) {
        const auto end = steady_clock::now() + std::chrono::seconds(20);
        while (condition() && steady_clock::now() < end) {
            poll.wait(5);
            quick->read();
            far->read();
        }
    }
    /// Until the far receiver has images that the near one does not have yet.
    void readOn() {
        const Timestamp enough = quick->newest + 10 * (numberedTime(1) - numberedTime(0));
        readWhile([&] { return far->newest < enough; });
        ASSERT_GE(far->newest, enough);
    }

    static constexpr double kOneWayMs = 250.0;
    std::optional<ImpairmentProxy> proxy;
    std::optional<Viewer> quick;
    std::optional<Viewer> far;
    stream::SrtLibrary library;
    stream::SrtPoll poll;
};

TEST_F(FarReceiver, GetsTheSamplesOfImagesHeldBackFromItOnceAndInOrder) {
    constexpr uint64_t kHeldBack = 30;
    start();

    readWhile([&] { return sender->status().frames_held_back < kHeldBack; });
    readOn();

    EXPECT_GE(far->lost().network, kHeldBack / 2);
    EXPECT_GT(far->samples.size(), 4 * kHeldBack);
    EXPECT_EQ(missing(quick->samples, samplesEach), 0U);
    EXPECT_EQ(missing(far->samples, samplesEach), 0U);
    EXPECT_EQ(sender->status().samples_lost, 0U);
}

TEST_F(FarReceiver, MissesOnlySamplesThatAreCountedWhenTheyAreTooMany) {
    samplesEach = 500;
    start();

    readWhile([&] { return sender->status().samples_lost == 0; });
    stopSource();
    const IMUPacket last = numberedSamples(lastNumber, numberedTime(lastNumber), samplesEach).back();
    const auto complete = [&](const Viewer& viewer) {
        return !viewer.samples.empty() && viewer.samples.back() == last;
    };
    readWhile([&] { return !complete(*far) || !complete(*quick); });
    const uint64_t lost = sender->status().samples_lost;

    EXPECT_GT(lost, 0U);
    EXPECT_EQ(missing(far->samples, samplesEach), lost);
    EXPECT_EQ(missing(quick->samples, samplesEach), 0U);
}

TEST(Subscribers, AReceiverThatComesBackBetweenTwoTablesMissesNoSample) {
    constexpr int64_t kPts = 90'000;
    const auto clock = makeSystemClock();
    const UDPOutConfig configuration = streamConfiguration(freePort());
    const auto samples = numberedSamples(1, numberedTime(1), 20);
    stream::CameraDescriber describer(configuration, 1, "");
    stream::SampleQueue queue;
    stream::Subscribers subscribers(*clock, {}, [](auto&&, const auto&) {});
    stream::FrameTransmitter transmitter(subscribers, describer, queue, 1);
    ASSERT_TRUE(transmitter.open(configuration));
    ASSERT_EQ(subscribers.open(configuration.port, 16'084), SENDER_RUNNING);
    const auto send = [&](std::size_t from, std::size_t to, int64_t pts, bool describe) {
        for (std::size_t i = from; i < to; ++i) {
            ASSERT_TRUE(queue.push(samples[i]));
        }
        transmitter.sendSamples(pts, 0, describe);
    };
    send(0, 10, kPts, false);
    Viewer viewer(configuration.port, stream::viewerId(samples[4].imu_timestamp));
    const auto end = steady_clock::now() + kPatience;
    while (subscribers.empty() && steady_clock::now() < end) {
        std::this_thread::yield();
    }

    send(10, 15, kPts + 100, false);
    send(15, 20, kPts + 200, true);

    while (viewer.samples.size() < 15 && steady_clock::now() < end) {
        viewer.read();
    }
    EXPECT_TRUE(viewer.samples == std::vector<IMUPacket>(samples.begin() + 5, samples.end())) << viewer.samples.size();
}

TEST_F(Loopback, SamplesOfABlackoutReachTheReceiverThatConnectsAgain) {
    startSender(streamConfiguration(freePort()));
    ImpairmentProxy proxy(settings.port, {}, 6);
    auto receiver = makeReceiver();
    startSource();
    ASSERT_EQ(receiver->open("127.0.0.1", proxy.port(), 0), 0);
    std::vector<IMUPacket> got;
    const auto readFor = [&](int milliseconds) {
        const auto end = steady_clock::now() + std::chrono::milliseconds(milliseconds);
        while (steady_clock::now() < end) {
            (void)receiver->readStreamData(image.data(), nullptr);
            const auto packets = receiver->takeImuPacketsBefore(UINT64_MAX);
            got.insert(got.end(), packets.begin(), packets.end());
        }
    };
    ASSERT_TRUE(readNext(*receiver, image));

    readFor(300);
    proxy.setBlackout(true);
    readFor(1700);
    proxy.setBlackout(false);
    const std::size_t before = got.size();
    ASSERT_TRUE(readNext(*receiver, image));
    for (int i = 0; i < 40 && got.size() <= before + 4 * 30; ++i) {
        readFor(500);
    }

    EXPECT_GT(got.size(), before + 4 * 30) << "more than half a second of samples came with the first pictures";
    EXPECT_GT(receiver->counters().network, 20U);
    EXPECT_EQ(missing(got, samplesEach), 0U);
    EXPECT_EQ(sender->status().samples_lost, 0U);
}

}  // namespace
}  // namespace oru::test
