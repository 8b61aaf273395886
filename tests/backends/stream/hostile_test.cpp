// A receiver that runs while strangers do their worst to its sender, and to itself.
#include <gtest/gtest.h>
#include <srt/access_control.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <set>

#include "backends/stream/HostileSocket.hpp"
#include "backends/stream/Loopback.hpp"
#include "backends/stream/RawCaller.hpp"
#include "backends/stream/transport/rate_limit.hpp"
#include "doubles/LogCapture.hpp"
#include "doubles/ScopedEnvironment.hpp"

namespace oru::test {
namespace {

using doubles::LogCapture;
using doubles::ScopedEnvironment;

// The sender gives a receiver 400 ms to acknowledge.
constexpr int64_t kStoodStillMs = 100;
constexpr uint64_t kSecond = 1'000'000'000;

class UnderAttack : public Loopback {
protected:
    void SetUp() override { begin(); }
    virtual void begin() { start(nullptr); }
    void start(const char* key) {
        const ScopedEnvironment viewingKey("KORU_STREAM_PASSPHRASE", key);
        startSender(streamConfiguration(freePort()));
        startSource();
        LogCapture log;
        receiver = makeReceiver();
        ASSERT_EQ(receiver->open("127.0.0.1", settings.port, 0), 0);
        receiverPort = portIn(log.texts(LogLevel::Info));
        ASSERT_NE(receiverPort, 0);
        reading = true;
        reader = std::thread([this] { read(); });
        heart = std::thread([this] { beat(); });
    }
    void TearDown() override {
        reading = false;
        if (reader.joinable()) {
            reader.join();
            heart.join();
        }
        Loopback::TearDown();
        receiver.reset();
        sender.reset();
    }
    /// Lets the receiver go on after the attack, and judges what it got: every frame once and in order, but for those
    /// that this machine was too slow to make or to take. When it stood still the sender holds frames back for a
    /// receiver that did not acknowledge, as it should; how many then says nothing of the attack.
    void expectNothingChanged() {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        reading = false;
        reader.join();
        heart.join();
        ASSERT_GT(numbers.size(), 5U);
        const FrameCounters counters = receiver->counters();
        const uint64_t missing = numbers.back() - numbers.front() + 1 - numbers.size();
        std::printf(
            "%zu frames, %llu missing, pauses up to %lld ms; overwritten %llu busy %llu network %llu damaged %llu\n",
            numbers.size(), static_cast<unsigned long long>(missing), static_cast<long long>(longestPauseMs),
            static_cast<unsigned long long>(counters.overwritten),
            static_cast<unsigned long long>(counters.sender_busy), static_cast<unsigned long long>(counters.network),
            static_cast<unsigned long long>(counters.damaged));
        EXPECT_TRUE(missing <= counters.overwritten + counters.sender_busy || longestPauseMs > kStoodStillMs);
        EXPECT_EQ(counters.damaged + counters.decode_failed + counters.queue_full, 0U);
        EXPECT_EQ(wrong, 0U);
    }

    std::unique_ptr<UDPInput> receiver;
    uint16_t receiverPort = 0;  ///< where the transport library hears the sender

private:
    /// Of "receiver 127.0.0.1:40000 connected", as the sender tells it.
    static uint16_t portIn(const std::vector<std::string>& texts) {
        const std::string before = "receiver 127.0.0.1:";
        for (const std::string& text : texts) {
            const std::size_t at = text.find(before);
            if (at != std::string::npos && text.ends_with("connected")) {
                return static_cast<uint16_t>(std::atoi(text.c_str() + at + before.size()));
            }
        }
        return 0;
    }
    void read() {
        while (reading) {
            if (!receiver->readStreamData(image.data(), nullptr)) {
                continue;
            }
            const SeenImage seen = readImage(image, settings.width, settings.height);
            const bool right = seen.mean_error < 10.0 && (numbers.empty() || seen.number > numbers.back()) &&
                               receiver->frameTimestamp() == numberedTime(seen.number);
            wrong += right ? 0 : 1;
            numbers.push_back(seen.number);
        }
    }

    /// How long a thread of this process had to wait for a processor.
    void beat() {
        constexpr std::chrono::milliseconds kBeat(5);
        while (reading) {
            const auto begin = std::chrono::steady_clock::now();
            std::this_thread::sleep_for(kBeat);
            const auto late = std::chrono::steady_clock::now() - begin - kBeat;
            longestPauseMs =
                std::max<int64_t>(longestPauseMs, std::chrono::duration_cast<std::chrono::milliseconds>(late).count());
        }
    }

    std::atomic<bool> reading{false};
    int64_t longestPauseMs = 0;     // of the beating thread until it ends
    std::vector<uint64_t> numbers;  // of the reading thread until it ends, as the next
    unsigned wrong = 0;
    std::thread reader;
    std::thread heart;
};

TEST_F(UnderAttack, AHundredThousandHostileDatagramsChangeNothing) {
    constexpr int kDatagrams = 100'000;
    constexpr int kSockets = 10;
    constexpr int kBatch = 100;
    LogCapture log(LogLevel::TraceL3);
    std::vector<std::unique_ptr<HostileSocket>> strangers;
    for (uint64_t seed = 1; seed <= kSockets; ++seed) {
        const uint16_t port = seed % 2 == 0 ? settings.port : receiverPort;
        strangers.push_back(std::make_unique<HostileSocket>(port, seed));
    }

    for (int i = 0; i < kDatagrams; ++i) {
        strangers[static_cast<std::size_t>(i % kSockets)]->sendRandom();
        if (i % kBatch == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }

    expectNothingChanged();
    EXPECT_EQ(sender->status().receivers, 1U);
    // A line for each would bury the log: they are thinned out.
    EXPECT_LT(log.records().size(), 200U);
}

TEST_F(UnderAttack, TwoHundredHalfOpenOrStalledClientsChangeNothing) {
    LogCapture log(LogLevel::TraceL3);
    std::vector<std::unique_ptr<HostileSocket>> halfOpen;
    std::vector<std::unique_ptr<RawCaller>> stalled;
    int answered = 0;
    unsigned most = 0;
    for (uint64_t i = 0; i < 150; ++i) {
        halfOpen.push_back(std::make_unique<HostileSocket>(settings.port, i));
        answered += halfOpen.back()->openHalf(i % 3 != 0) ? 1 : 0;
        most = std::max(most, sender->status().receivers);
    }
    // These are admitted, acknowledge, and never read.
    for (int i = 0; i < 50; ++i) {
        stalled.push_back(std::make_unique<RawCaller>(settings.port, RawCaller::Kind::VIEWER, ""));
        most = std::max(most, sender->status().receivers);
    }
    std::this_thread::sleep_for(std::chrono::seconds(3));

    std::printf("%d half-open clients were answered, %u receivers at most, %zu log lines\n", answered, most,
                log.records().size());
    EXPECT_GT(answered, 100);
    EXPECT_GT(most, 1U);
    EXPECT_LE(most, 16U);
    EXPECT_LT(log.records().size(), 400U);
    expectNothingChanged();
}

TEST_F(UnderAttack, AStrangerWhoKeepsSendingIsDropped) {
    RawCaller stranger(settings.port, RawCaller::Kind::VIEWER, "");
    ASSERT_TRUE(stranger.connected());
    const std::string request = stream::kKeyFrameRequest;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    uint64_t sentMessages = 0;
    while (stranger.connected() && std::chrono::steady_clock::now() < end) {
        sentMessages += stranger.send(request) ? 1 : 0;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }

    std::printf("dropped after %llu messages\n", static_cast<unsigned long long>(sentMessages));
    EXPECT_FALSE(stranger.connected());
    expectNothingChanged();
}

class UnderAttackWithAKey : public UnderAttack {
protected:
    void begin() override { start("the-viewing-key"); }
};

TEST_F(UnderAttackWithAKey, WrongKeysCostTheSenderOnlySoManyDerivations) {
    constexpr int kAttempts = 120;
    int derived = 0;
    int turnedAway = 0;
    const uint64_t start = clock->monotonicNanoseconds();
    for (int i = 0; i < kAttempts; ++i) {
        const RawCaller stranger(settings.port, RawCaller::Kind::VIEWER, "not-the-viewing-key");
        EXPECT_FALSE(stranger.connected());
        derived += stranger.rejection() == SRT_REJ_BADSECRET ? 1 : 0;
        turnedAway += stranger.rejection() == SRT_REJX_OVERLOAD ? 1 : 0;
    }
    const double seconds = static_cast<double>(clock->monotonicNanoseconds() - start) / static_cast<double>(kSecond);

    std::printf("%d derivations, %d turned away in %.1f s\n", derived, turnedAway, seconds);
    EXPECT_LE(derived, stream::ConnectionLimiter::kBurst + stream::ConnectionLimiter::kPerSecond * (seconds + 1.0));
    EXPECT_GT(derived, 0);
    expectNothingChanged();
}

TEST_F(UnderAttackWithAKey, AnOldHandshakeIsRefused) {
    HostileSocket stranger(settings.port, 1);

    EXPECT_FALSE(stranger.openOld());
    expectNothingChanged();
    EXPECT_EQ(sender->status().receivers, 1U);
}

}  // namespace
}  // namespace oru::test
