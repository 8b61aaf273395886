// How a receiver tells a sender that ended from one that paused or was lost.

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "backends/stream/Loopback.hpp"
#include "backends/stream/receiver/StreamLink.hpp"
#include "doubles/ChildProcess.hpp"
#include "doubles/ScriptedClock.hpp"

namespace oru::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr uint32_t kWidth = 320;
constexpr uint32_t kHeight = 240;

/// Waits for a condition; false when kPatience is over.
template <class Condition>
bool eventually(const Condition& condition) {
    const auto end = steady_clock::now() + kPatience;
    while (!condition()) {
        if (steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(milliseconds(5));
    }
    return true;
}

TEST_F(Loopback, ASenderThatClosesSaysGoodbyeAfterItsLastFrame) {
    startSender(streamConfiguration(freePort()));
    const auto receiver = connect();
    ASSERT_NE(receiver, nullptr);
    NumberedSource source(*sender, kWidth, kHeight, 30);
    for (int i = 0; i < 20; ++i) {
        source.step();
        ASSERT_TRUE(readNext(*receiver, image));
    }
    const uint64_t last = source.number();
    source.step();
    EXPECT_FALSE(receiver->status().goodbye);

    sender.reset();

    ASSERT_TRUE(readNext(*receiver, image)) << "the frame that was handed over just before";
    EXPECT_GT(readImage(image, kWidth, kHeight).number, last);
    ASSERT_TRUE(eventually([&] { return receiver->status().goodbye; }));
    const auto begin = steady_clock::now();
    for (int cycle = 0; cycle < 250; ++cycle) {
        ASSERT_FALSE(receiver->readStreamData(image.data(), nullptr));
    }
    EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(4)) << "250 waits for a frame take 5 s";
    EXPECT_EQ(receiver->counters().lost(), 0U);
    EXPECT_TRUE(eventually([&] { return !receiver->status().connected; }));

    startSender(settings);
    startSource();
    ASSERT_TRUE(readNext(*receiver, image)) << "another stream begins where one ended";
    EXPECT_FALSE(receiver->status().goodbye);
    EXPECT_TRUE(receiver->status().connected);
    EXPECT_GE(receiver->status().reconnections, 1U);
}

/// A sender in a process of its own.
class PeerSender : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(receiver->open("127.0.0.1", port, 0), 0);
        ASSERT_TRUE(readNext(*receiver, image));
    }
    /// Reads for so long; how many frames came.
    int readFor(milliseconds duration) {
        int frames = 0;
        const auto end = steady_clock::now() + duration;
        while (steady_clock::now() < end) {
            frames += receiver->readStreamData(image.data(), nullptr) ? 1 : 0;
        }
        return frames;
    }

    const uint16_t port = freePort();
    doubles::ChildProcess sender{
        {ORU_STREAM_PEER, "send", std::to_string(port), "0", std::to_string(kWidth), std::to_string(kHeight), "30"}};
    std::unique_ptr<Clock> clock = makeSystemClock();
    CalibrationKeeper texts;
    std::unique_ptr<UDPInput> receiver = makeStreamReceiver(*clock, texts, nullptr, false);
    std::vector<unsigned char> image = std::vector<unsigned char>(kWidth * kHeight * 2);
};

TEST_F(PeerSender, ThatPausesIsWaitedForAsLongAsALiveOneAndIsThereAgain) {
    ::kill(sender.id(), SIGSTOP);
    readFor(milliseconds(1500));
    EXPECT_FALSE(receiver->status().connected);
    EXPECT_GT(receiver->status().last_frame_age_ms, 500.0);

    const auto begin = steady_clock::now();
    for (int i = 0; i < 10; ++i) {
        EXPECT_FALSE(receiver->readStreamData(image.data(), nullptr));
    }
    EXPECT_GT(steady_clock::now() - begin, milliseconds(180)) << "10 waits of 20 ms, also after a second of silence";
    EXPECT_FALSE(receiver->status().goodbye);

    ::kill(sender.id(), SIGCONT);
    EXPECT_TRUE(readNext(*receiver, image));
    EXPECT_TRUE(receiver->status().connected);
    EXPECT_LT(receiver->status().last_frame_age_ms, 5000.0);
}

TEST_F(PeerSender, ThatIsKilledNeverSaidGoodbye) {
    sender.kill();
    readFor(milliseconds(1500));

    const StreamInputStatus status = receiver->status();

    EXPECT_FALSE(status.goodbye);
    EXPECT_FALSE(status.connected);
    EXPECT_GT(status.last_frame_age_ms, 500.0);
    EXPECT_EQ(readFor(milliseconds(100)), 0);
    EXPECT_GT(receiver->status().last_frame_age_ms, status.last_frame_age_ms);
}

TEST_F(Loopback, TheSensorsCalibrationReachesTheReceiver) {
    ImuCalibration calibration;
    calibration.values[0] = 0.25F;
    startSender(streamConfiguration(freePort()));
    sender->setImuCalibration(calibration);
    startSource();

    const auto receiver = connect();

    ASSERT_NE(receiver, nullptr);
    EXPECT_EQ(receiver->announcedImuCalibration(), calibration);
}

TEST_F(Loopback, AFailureWhileReceivingEndsOneConnectionAndNotTheStream) {
    start();
    std::atomic<int> failures{0};
    std::atomic<uint64_t> messages{0};
    stream::StreamLink link(*clock, {[] {},
                                     [&](const uint8_t*, std::size_t) {
                                         if (failures < 2) {
                                             ++failures;
                                             throw std::bad_alloc();
                                         }
                                         ++messages;
                                     }});
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(settings.port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);

    link.start(stream::SocketAddress(address), "");

    EXPECT_TRUE(eventually([&] { return messages > 10; }));
    EXPECT_EQ(link.connections(), 3U);
    EXPECT_TRUE(link.connected());
}

TEST(StreamLink, WhatWasHeardAMomentAgoIsNoSilence) {
    doubles::ScriptedClock clock;
    stream::StreamLink link(clock, {[] {}, [](const uint8_t*, std::size_t) {}});
    sockaddr_in nobody{};
    nobody.sin_family = AF_INET;
    nobody.sin_port = htons(freePort());
    nobody.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    link.start(stream::SocketAddress(nobody), "");
    link.stop();

    clock.now -= 1'000'000'000'000;

    EXPECT_FALSE(link.silent()) << "the clock was read before the last message came";
}

TEST(SrtPoll, MoreReadySocketsThanItNamesAreNotReadBeyondItsEnd) {
    constexpr std::size_t kSockets = 40;
    const stream::SrtLibrary library;
    stream::SrtSocket listener(srt_create_socket());
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(freePort());
    const auto* name = reinterpret_cast<const sockaddr*>(&address);
    ASSERT_EQ(srt_bind(listener.get(), name, sizeof(address)), 0);
    ASSERT_EQ(srt_listen(listener.get(), kSockets), 0);
    stream::SrtPoll poll;
    std::vector<stream::SrtSocket> callers;
    for (std::size_t i = 0; i < kSockets; ++i) {
        callers.emplace_back(srt_create_socket());
        ASSERT_EQ(srt_connect(callers.back().get(), name, sizeof(address)), 0);
        poll.watch(callers.back().get(), SRT_EPOLL_OUT);
    }

    const auto ready = poll.wait(1000);

    EXPECT_GT(ready.size(), 0U);
    EXPECT_LE(ready.size(), 32U);
    for (const SRT_EPOLL_EVENT& event : ready) {
        EXPECT_TRUE(
            std::any_of(callers.begin(), callers.end(), [&](const auto& caller) { return caller.get() == event.fd; }));
    }
}

}  // namespace
}  // namespace oru::test
