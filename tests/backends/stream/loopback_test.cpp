#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "backends/stream/Loopback.hpp"

namespace oru::test {
namespace {

constexpr uint32_t kWidth = 320;
constexpr uint32_t kHeight = 240;

TEST_F(Loopback, GivesTheSendersCalibrationInsideOpen) {
    senderTexts.offer(4711, std::string(9000, 'c') + "[LEFT]");
    start();
    auto receiver = makeReceiver();
    ASSERT_EQ(receiver->open("localhost", settings.port, 0), 0);

    EXPECT_EQ(receiver->description().serial_number, 4711);
    EXPECT_TRUE(receiver->description().has_imu);
    EXPECT_EQ(receiverTexts.text(4711), senderTexts.text(4711));
    EXPECT_EQ(receiverTexts.origin(), CalibrationOrigin::STREAM);
    EXPECT_EQ(receiverTexts.place(), "localhost:" + std::to_string(settings.port));
}

TEST_F(Loopback, VersionOneCarriesNeitherSamplesNorPose) {
    UDPOutConfig configuration = streamConfiguration(freePort());
    configuration.version = 1;
    startSender(configuration);
    startSource();
    const auto receiver = connect();
    ASSERT_NE(receiver, nullptr);
    ASSERT_TRUE(readNext(*receiver, image));

    EXPECT_FALSE(sender->carriesImu());
    EXPECT_EQ(receiver->versionByte(), 4);
    EXPECT_FALSE(receiver->description().has_imu);
    EXPECT_FALSE(receiver->canSupplyCurrentImu());
    EXPECT_EQ(receiver->announcedImuPose().w, 0.0F);
    EXPECT_TRUE(receiver->takeImuPacketsBefore(UINT64_MAX).empty());
    EXPECT_TRUE(receiver->frameHasMetadata());
}

TEST_F(Loopback, AFrameWithoutOrientationComesWithoutMetadata) {
    startSender(streamConfiguration(freePort()));
    const auto receiver = connect();
    ASSERT_NE(receiver, nullptr);
    auto sent = numberedImage(kWidth, kHeight, 3);
    rlxrw::rlxSampleMetadata metadata = numberedMetadata(3);
    std::fill_n(metadata.bytes, 16, static_cast<unsigned char>(0));

    sender->asyncingestYUVFrame(sent.data(), 1000, metadata, static_cast<int>(sent.size()));

    ASSERT_TRUE(readNext(*receiver, image));
    EXPECT_FALSE(receiver->frameHasMetadata());
    EXPECT_EQ(receiver->frameTimestamp(), 1000U);
}

TEST_F(Loopback, AReaderThatFallsBehindGetsTheNewestFrame) {
    start();
    const auto receiver = connect();
    ASSERT_NE(receiver, nullptr);
    ASSERT_TRUE(readNext(*receiver, image));
    const uint64_t before = readImage(image, kWidth, kHeight).number;

    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (receiver->counters().overwritten <= 10 && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_TRUE(readNext(*receiver, image));

    EXPECT_GT(readImage(image, kWidth, kHeight).number, before + 10);
    const FrameCounters counters = receiver->counters();
    EXPECT_GT(counters.overwritten, 10U);
    EXPECT_EQ(counters.produced, counters.delivered + counters.lost());
}

TEST_F(Loopback, SeveralReceiversAndALateOneGetTheSameFrames) {
    start();
    std::vector<std::unique_ptr<UDPInput>> receivers;
    for (int i = 0; i < 4; ++i) {
        receivers.push_back(makeReceiver());
        ASSERT_EQ(receivers.back()->open("127.0.0.1", settings.port, 0), 0);
        ASSERT_TRUE(readNext(*receivers.back(), image));
    }

    receivers.erase(receivers.begin() + 1);
    for (int round = 0; round < 20; ++round) {
        for (const auto& receiver : receivers) {
            ASSERT_TRUE(readNext(*receiver, image));
            const SeenImage seen = readImage(image, kWidth, kHeight);
            EXPECT_EQ(receiver->frameTimestamp(), numberedTime(seen.number));
            EXPECT_LT(seen.mean_error, 6.0);
        }
    }
    for (const auto& receiver : receivers) {
        EXPECT_EQ(receiver->counters().damaged + receiver->counters().decode_failed, 0U);
    }
}

TEST_F(Loopback, ARestartedSenderIsFoundAgainAndNothingOldComesBack) {
    start();
    const auto receiver = connect();
    ASSERT_NE(receiver, nullptr);
    ASSERT_TRUE(readNext(*receiver, image));
    stopSource();
    while (receiver->readStreamData(image.data(), nullptr)) {
    }
    sender.reset();
    while (receiver->readStreamData(image.data(), nullptr)) {
    }

    firstNumber = 100'000;
    startSender(settings);
    startSource();

    ASSERT_TRUE(readNext(*receiver, image));
    EXPECT_GT(readImage(image, kWidth, kHeight).number, 100000U);
}

TEST_F(Loopback, AnswersAtOnceWhenTheSenderIsGone) {
    startSender(streamConfiguration(freePort()));
    const auto receiver = connect();
    ASSERT_NE(receiver, nullptr);
    sender.reset();

    const uint64_t begin = clock->monotonicNanoseconds();
    for (int cycle = 0; cycle < 250; ++cycle) {
        EXPECT_FALSE(receiver->readStreamData(image.data(), nullptr));
    }

    EXPECT_LT(clock->monotonicNanoseconds() - begin, 4'000'000'000U) << "250 waits for a frame take 5 s";
}

TEST_F(Loopback, OpenFailsInBoundedTimeWhereNobodySends) {
    const struct {
        const char* host;
        int port;
        int status;
    } cases[] = {{"127.0.0.1", freePort(), STREAM_NO_ANSWER},
                 {"", 30000, STREAM_BAD_ADDRESS},
                 {"127.0.0.1", 0, STREAM_BAD_ADDRESS},
                 {"no-such-host.invalid", 1, STREAM_UNKNOWN_HOST}};
    for (const auto& attempt : cases) {
        auto receiver = makeReceiver();
        const uint64_t begin = clock->monotonicNanoseconds();
        EXPECT_EQ(receiver->open(attempt.host, static_cast<unsigned short>(attempt.port), 0), attempt.status);
        EXPECT_LT(clock->monotonicNanoseconds() - begin, 8'000'000'000U)
            << attempt.host << ": 3 s and what a busy machine adds";
    }
}

TEST_F(Loopback, IsReachedOverBothKindsOfAddressAtOnce) {
    start();
    const auto four = connect();
    ASSERT_NE(four, nullptr);
    EXPECT_TRUE(readNext(*four, image));
    const int probe = ::socket(AF_INET6, SOCK_DGRAM, 0);
    sockaddr_in6 local{};
    local.sin6_family = AF_INET6;
    local.sin6_addr = in6addr_loopback;
    const bool available = probe >= 0 && ::bind(probe, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) == 0;
    ::close(probe);
    if (!available) {
        GTEST_SKIP() << "no IPv6 on this machine";
    }

    for (const char* host : {"::1", "[::1]"}) {
        auto six = makeReceiver();
        ASSERT_EQ(six->open(host, settings.port, 0), STREAM_CONNECTED) << host;
        EXPECT_TRUE(readNext(*six, image)) << host;
    }
    EXPECT_TRUE(readNext(*four, image));
}

TEST_F(Loopback, APortThatIsTakenIsRefused) {
    startSender(streamConfiguration(freePort()));

    auto second = makeStreamSender(*clock, senderTexts, false);

    EXPECT_EQ(second->open(settings), SENDER_PORT_TAKEN);
    EXPECT_FALSE(second->isRunning());
}

}  // namespace
}  // namespace oru::test
