#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <set>
#include <thread>

#include "backends/stream/Loopback.hpp"

namespace oru::test {
namespace {

constexpr uint32_t kWidth = 320;
constexpr uint32_t kHeight = 240;

TEST_F(Loopback, DeliversEveryFrameOnceWithItsTimeMetadataAndSamples) {
    startSender(streamConfiguration(freePort(), kWidth, kHeight));
    startSource();
    auto receiver = makeReceiver();
    ASSERT_EQ(receiver->open("127.0.0.1", settings.port, 0), 0);

    std::vector<unsigned char> image(kWidth * kHeight * 2);
    uint64_t last = 0;
    for (int i = 0; i < 60; ++i) {
        ASSERT_TRUE(readWithin(*receiver, image, 2000)) << "frame " << i;
        const SeenImage seen = readImage(image, kWidth, kHeight);
        EXPECT_LT(seen.mean_error, 6.0);
        EXPECT_EQ(seen.number, last == 0 ? seen.number : last + 1);
        EXPECT_EQ(receiver->frameTimestamp(), numberedTime(seen.number));
        ASSERT_TRUE(receiver->frameHasMetadata());
        const rlxrw::rlxSampleMetadata expected = numberedMetadata(seen.number);
        EXPECT_EQ(std::memcmp(receiver->frameMetadata().bytes, expected.bytes, sizeof(expected)), 0);
        last = seen.number;
    }

    const FrameCounters counters = receiver->counters();
    EXPECT_EQ(counters.produced, counters.delivered + counters.lost());
    EXPECT_EQ(counters.lost(), 0U);
}

TEST_F(Loopback, GivesTheSendersDescriptionAndCalibrationInsideOpen) {
    senderTexts.offer(4711, std::string(9000, 'c') + "[LEFT]");
    startSender(streamConfiguration(freePort(), kWidth, kHeight));
    startSource();
    auto receiver = makeReceiver();
    ASSERT_EQ(receiver->open("localhost", settings.port, 0), 0);

    const StreamDescription seen = receiver->description();
    EXPECT_EQ(seen.serial_number, 4711);
    EXPECT_EQ(seen.model, MODEL_MONO_3UM);
    EXPECT_EQ(seen.camera_fw, 513U);
    EXPECT_EQ(seen.sensors_fw, 1027U);
    EXPECT_EQ(seen.width, kWidth);
    EXPECT_EQ(seen.height, kHeight);
    EXPECT_TRUE(seen.has_imu);
    EXPECT_EQ(seen.flip_state, 1);
    EXPECT_EQ(receiver->announcedFps(), 30);
    EXPECT_EQ(receiver->versionByte(), 5);
    EXPECT_EQ(receiverTexts.text(4711), senderTexts.text(4711));
}

TEST_F(Loopback, DescribesTheCameraBeforeItsFirstFrame) {
    startSender(streamConfiguration(freePort(), kWidth, kHeight));
    auto receiver = makeReceiver();

    EXPECT_EQ(receiver->open("127.0.0.1", settings.port, 0), 0);

    EXPECT_EQ(receiver->description().serial_number, 4711);
    EXPECT_FALSE(receiver->description().has_imu);
}

TEST_F(Loopback, VersionOneCarriesNeitherSamplesNorPose) {
    UDPOutConfig configuration = streamConfiguration(freePort(), kWidth, kHeight);
    configuration.version = 1;
    startSender(configuration);
    startSource();
    auto receiver = makeReceiver();
    ASSERT_EQ(receiver->open("127.0.0.1", settings.port, 0), 0);
    std::vector<unsigned char> image(kWidth * kHeight * 2);
    ASSERT_TRUE(readWithin(*receiver, image, 2000));

    EXPECT_FALSE(sender->carriesImu());
    EXPECT_EQ(receiver->versionByte(), 4);
    EXPECT_FALSE(receiver->description().has_imu);
    EXPECT_FALSE(receiver->canSupplyCurrentImu());
    EXPECT_EQ(receiver->announcedImuPose().w, 0.0F);
    EXPECT_TRUE(receiver->takeImuPacketsBefore(UINT64_MAX).empty());
    EXPECT_TRUE(receiver->frameHasMetadata());
}

TEST_F(Loopback, CarriesEverySampleBitForBitAndAheadOfItsFrame) {
    startSender(streamConfiguration(freePort(), kWidth, kHeight));
    startSource();
    auto receiver = makeReceiver();
    ASSERT_EQ(receiver->open("127.0.0.1", settings.port, 0), 0);
    std::vector<unsigned char> image(kWidth * kHeight * 2);
    ASSERT_TRUE(readWithin(*receiver, image, 2000));
    (void)receiver->takeImuPacketsBefore(receiver->frameTimestamp());

    const uint64_t first = readImage(image, kWidth, kHeight).number + 1;
    std::vector<IMUPacket> got;
    uint64_t number = 0;
    while (number < first + 20) {
        ASSERT_TRUE(readWithin(*receiver, image, 2000));
        number = readImage(image, kWidth, kHeight).number;
        const auto taken = receiver->takeImuPacketsBefore(receiver->frameTimestamp());
        EXPECT_TRUE(taken.empty() || taken.back().imu_timestamp < receiver->frameTimestamp());
        got.insert(got.end(), taken.begin(), taken.end());
    }
    // A busy machine may hold a frame's samples back until the next frame: at either end one frame's are left out.
    std::erase_if(got, [&](const IMUPacket& packet) {
        return packet.imu_timestamp < numberedTime(first) || packet.imu_timestamp > numberedTime(number - 1);
    });
    std::vector<IMUPacket> expected;
    for (uint64_t i = first + 1; i < number; ++i) {
        const auto samples = numberedSamples(i, numberedTime(i), 4);
        expected.insert(expected.end(), samples.begin(), samples.end());
    }

    EXPECT_EQ(got.size(), expected.size());
    EXPECT_TRUE(got == expected);
    IMUPacket newest;
    EXPECT_TRUE(receiver->canSupplyCurrentImu());
    EXPECT_TRUE(receiver->getCurrentIMU(newest));
    EXPECT_GE(newest.imu_timestamp, got.back().imu_timestamp);
}

TEST_F(Loopback, AFrameWithoutOrientationComesWithoutMetadata) {
    startSender(streamConfiguration(freePort(), kWidth, kHeight));
    auto receiver = makeReceiver();
    ASSERT_EQ(receiver->open("127.0.0.1", settings.port, 0), 0);
    std::vector<unsigned char> image(kWidth * kHeight * 2);
    auto sent = numberedImage(kWidth, kHeight, 3);
    rlxrw::rlxSampleMetadata metadata = numberedMetadata(3);
    std::fill_n(metadata.bytes, 16, static_cast<unsigned char>(0));

    sender->asyncingestYUVFrame(sent.data(), 1000, metadata, static_cast<int>(sent.size()));

    ASSERT_TRUE(readWithin(*receiver, image, 2000));
    EXPECT_FALSE(receiver->frameHasMetadata());
    EXPECT_EQ(receiver->frameTimestamp(), 1000U);
}

TEST_F(Loopback, AReaderThatFallsBehindGetsTheNewestFrame) {
    startSender(streamConfiguration(freePort(), kWidth, kHeight));
    startSource();
    auto receiver = makeReceiver();
    ASSERT_EQ(receiver->open("127.0.0.1", settings.port, 0), 0);
    std::vector<unsigned char> image(kWidth * kHeight * 2);
    ASSERT_TRUE(readWithin(*receiver, image, 2000));
    const uint64_t before = readImage(image, kWidth, kHeight).number;

    std::this_thread::sleep_for(std::chrono::milliseconds(700));
    ASSERT_TRUE(readWithin(*receiver, image, 2000));

    EXPECT_GT(readImage(image, kWidth, kHeight).number, before + 10);
    const FrameCounters counters = receiver->counters();
    EXPECT_GT(counters.overwritten, 5U);
    EXPECT_EQ(counters.produced, counters.delivered + counters.lost());
}

TEST_F(Loopback, SeveralReceiversAndALateOneGetTheSameFrames) {
    startSender(streamConfiguration(freePort(), kWidth, kHeight));
    startSource();
    std::vector<std::unique_ptr<UDPInput>> receivers;
    std::vector<unsigned char> image(kWidth * kHeight * 2);
    for (int i = 0; i < 4; ++i) {
        receivers.push_back(makeReceiver());
        ASSERT_EQ(receivers.back()->open("127.0.0.1", settings.port, 0), 0);
        ASSERT_TRUE(readWithin(*receivers.back(), image, 2000));
    }

    receivers.erase(receivers.begin() + 1);
    for (int round = 0; round < 20; ++round) {
        for (const auto& receiver : receivers) {
            ASSERT_TRUE(readWithin(*receiver, image, 2000));
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
    startSender(streamConfiguration(freePort(), kWidth, kHeight));
    startSource();
    auto receiver = makeReceiver();
    ASSERT_EQ(receiver->open("127.0.0.1", settings.port, 0), 0);
    std::vector<unsigned char> image(kWidth * kHeight * 2);
    ASSERT_TRUE(readWithin(*receiver, image, 2000));
    stopSource();
    while (receiver->readStreamData(image.data(), nullptr)) {
    }
    sender.reset();
    EXPECT_FALSE(receiver->readStreamData(image.data(), nullptr));

    firstNumber = 100'000;
    startSender(settings);
    startSource();

    ASSERT_TRUE(readWithin(*receiver, image, 5000));
    EXPECT_GT(readImage(image, kWidth, kHeight).number, 100000U);
}

TEST_F(Loopback, AnswersAtOnceWhenTheSenderIsGone) {
    startSender(streamConfiguration(freePort(), kWidth, kHeight));
    auto receiver = makeReceiver();
    ASSERT_EQ(receiver->open("127.0.0.1", settings.port, 0), 0);
    std::vector<unsigned char> image(kWidth * kHeight * 2);
    sender.reset();

    const uint64_t begin = clock->monotonicNanoseconds();
    for (int cycle = 0; cycle < 250; ++cycle) {
        EXPECT_FALSE(receiver->readStreamData(image.data(), nullptr));
    }

    EXPECT_LT(clock->monotonicNanoseconds() - begin, 1500000000U);
}

TEST_F(Loopback, OpenFailsWithinThreeSecondsWhereNobodySends) {
    const struct {
        const char* host;
        int port;
        int status;
    } cases[] = {{"127.0.0.1", freePort(), -3}, {"", 30000, -1}, {"127.0.0.1", 0, -1}, {"no-such-host.invalid", 1, -2}};
    for (const auto& attempt : cases) {
        auto receiver = makeReceiver();
        const uint64_t begin = clock->monotonicNanoseconds();
        EXPECT_EQ(receiver->open(attempt.host, static_cast<unsigned short>(attempt.port), 0), attempt.status);
        EXPECT_LT(clock->monotonicNanoseconds() - begin, 4500000000U) << attempt.host;
    }
}

TEST_F(Loopback, APortThatIsTakenIsRefused) {
    startSender(streamConfiguration(freePort(), kWidth, kHeight));

    auto second = makeStreamSender(*clock, senderTexts, false);

    EXPECT_LT(second->open(settings), 0);
    EXPECT_FALSE(second->isRunning());
}

}  // namespace
}  // namespace oru::test
