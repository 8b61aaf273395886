#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "backends/stream/stream_fixture.hpp"
#include "collaborators/UDPInput.hpp"
#include "collaborators/UDPOutput.hpp"
#include "contracts/NamedSubject.hpp"

// What every sender and every receiver of a stream promises; a test program includes it and names its subjects.

namespace oru {
namespace {

/// A sender, a receiver and the way between them.
class StreamSubject {
public:
    virtual ~StreamSubject() = default;
    virtual UDPOutput& sender() = 0;
    virtual UDPInput& receiver() = 0;
    virtual int openReceiver(const UDPOutConfig& sent) = 0;
    /// Lets what was sent arrive, where it does not by itself.
    virtual void carry() = 0;
};

/// Runs in real time where the subject does; every wait is for a condition, with a bound that a busy machine keeps.
class StreamContract : public testing::TestWithParam<NamedSubject<StreamSubject>> {
protected:
    void open() {
        ASSERT_EQ(sender.open(settings), 0);
        sender.setGrabber(nullptr);
        ASSERT_EQ(subject->openReceiver(settings), 0);
    }
    /// Hands a frame over with two samples, then uses its memory for something else as soon as that is allowed.
    void send(uint64_t number) {
        std::vector<unsigned char> pixels = test::numberedImage(settings.width, settings.height, number);
        const uint64_t time = test::numberedTime(number);
        for (const IMUPacket& packet : test::numberedSamples(number, time, 2)) {
            sender.ingestIMU(packet);
        }
        sender.asyncingestYUVFrame(pixels.data(), time, test::numberedMetadata(number),
                                   static_cast<int>(pixels.size()));
        sender.waitingestYUVFrameProcessing();
        EXPECT_FALSE(sender.isBusy());
        std::fill(pixels.begin(), pixels.end(), static_cast<unsigned char>(0));
        subject->carry();
    }
    [[nodiscard]] bool receive() { return test::readNext(receiver, image); }

    UDPOutConfig settings = test::streamConfiguration(test::freePort());
    std::unique_ptr<StreamSubject> subject = GetParam().make();
    UDPOutput& sender = subject->sender();
    UDPInput& receiver = subject->receiver();
    std::vector<unsigned char> image = std::vector<unsigned char>(std::size_t{settings.width} * settings.height * 2, 9);
};

TEST_P(StreamContract, AReceiverWithoutAFrameLeavesTheImageAndReturnsSoon) {
    open();
    const std::vector<unsigned char> before = image;
    const auto begin = std::chrono::steady_clock::now();

    for (int i = 0; i < 10; ++i) {
        EXPECT_FALSE(receiver.readStreamData(image.data(), nullptr));
    }

    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5)) << "10 waits of 20 ms";
    EXPECT_EQ(image, before);
    EXPECT_TRUE(receiver.takeImuPacketsBefore(UINT64_MAX).empty());
    EXPECT_EQ(receiver.counters().produced, 0U);
}

TEST_P(StreamContract, AReceiverKnowsWhatTheSenderWasOpenedWith) {
    open();

    const StreamDescription seen = receiver.description();

    EXPECT_EQ(static_cast<uint32_t>(seen.serial_number), settings.serial_number);
    EXPECT_EQ(seen.model, settings.model);
    EXPECT_EQ(seen.camera_fw, settings.camera_fw);
    EXPECT_EQ(seen.sensors_fw, settings.sensors_fw);
    EXPECT_EQ(seen.width, settings.width);
    EXPECT_EQ(seen.height, settings.height);
    EXPECT_EQ(seen.flip_state, settings.flipped ? 1 : 0);
    EXPECT_EQ(receiver.announcedFps(), settings.fps);
    EXPECT_EQ(receiver.versionByte(), settings.version == 2 ? 5 : 4);
}

// Each frame is sent when the one before it was read, so that no frame may be lost however slow the machine is.
TEST_P(StreamContract, EveryFrameArrivesOnceWithItsTimeAndMetadataAndItsMemoryIsFreeAtOnce) {
    constexpr uint64_t kFrames = 30;
    open();
    for (uint64_t number = 1; number <= kFrames; ++number) {
        send(number);

        ASSERT_TRUE(receive()) << number;

        const test::SeenImage seen = test::readImage(image, settings.width, settings.height);
        EXPECT_EQ(seen.number, number);
        EXPECT_LT(seen.mean_error, 6.0);
        EXPECT_EQ(receiver.frameTimestamp(), test::numberedTime(number));
        ASSERT_TRUE(receiver.frameHasMetadata());
        const auto metadata = test::numberedMetadata(number);
        EXPECT_EQ(std::memcmp(receiver.frameMetadata().bytes, metadata.bytes, sizeof(metadata.bytes)), 0);
    }
    for (const FrameCounters& counters : {sender.counters(), receiver.counters()}) {
        EXPECT_EQ(counters.delivered, kFrames);
        EXPECT_EQ(counters.produced, kFrames);
        EXPECT_EQ(counters.lost(), 0U);
    }
}

TEST_P(StreamContract, EverySampleComesBitForBitInTimeOrderBeforeTheTimeAskedForAndOnlyOnce) {
    constexpr uint64_t kFrames = 20;
    open();
    std::vector<IMUPacket> expected;
    for (uint64_t number = 1; number <= kFrames; ++number) {
        const auto samples = test::numberedSamples(number, test::numberedTime(number), 2);
        expected.insert(expected.end(), samples.begin(), samples.end());
    }
    std::vector<IMUPacket> got;
    // A frame's samples may come after it: more frames are sent until all are there.
    for (uint64_t number = 1; number <= 10 * kFrames && got.size() < expected.size(); ++number) {
        send(number);
        ASSERT_TRUE(receive());
        const auto taken = receiver.takeImuPacketsBefore(test::numberedTime(std::min(number, kFrames)));
        got.insert(got.end(), taken.begin(), taken.end());
    }

    EXPECT_EQ(got, expected);
    EXPECT_TRUE(receiver.canSupplyCurrentImu());
    IMUPacket newest;
    ASSERT_TRUE(receiver.getCurrentIMU(newest));
    EXPECT_GE(newest.imu_timestamp, got.back().imu_timestamp);
}

}  // namespace
}  // namespace oru
