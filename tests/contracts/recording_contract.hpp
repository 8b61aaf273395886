#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "collaborators/RLXVideo.hpp"
#include "contracts/NamedSubject.hpp"
#include "doubles/numbered_images.hpp"

// What every recorder and reader of RLX files promises; a test program includes it and names its subjects.

namespace oru {
namespace {

/// Readers and recorders of the same files, and a path for one.
class RecordingSubject {
public:
    virtual ~RecordingSubject() = default;
    virtual std::unique_ptr<rlxrw::RLXVideo> make() = 0;
    virtual std::string path() = 0;
};

class RecordingContract : public testing::TestWithParam<NamedSubject<RecordingSubject>> {
protected:
    static constexpr uint32_t kWidth = 64;
    static constexpr uint32_t kHeight = 48;

    static std::vector<unsigned char> imageOf(uint64_t number) {
        return doubles::numberedImage(kWidth, kHeight, number);
    }
    static Timestamp timeOf(uint64_t number) { return 1'700'000'000'000'000'000 + number * 33'333'333; }
    static IMUPacket sampleOf(uint64_t number) {
        IMUPacket packet;
        packet.valid = true;
        packet.imu_timestamp = timeOf(number) - 1;
        return packet;
    }
    /// Frame n carries n packets.
    static std::vector<IMUPacket> packetsOf(uint64_t number) {
        return std::vector<IMUPacket>(number, sampleOf(number));
    }
    static rlxrw::rlxSampleMetadata metadataOf(uint64_t number) {
        rlxrw::rlxSampleMetadata metadata{};
        std::memset(metadata.bytes, static_cast<int>(number + 1), sizeof(metadata.bytes));
        return metadata;
    }

    int create(rlxrw::RLXVideo& recorder) {
        rlxrw::RlxRecordingHeader header;
        header.serial_number = 30'010'001;
        header.model = MODEL_MONO_3UM;
        header.width = kWidth;
        header.height = kHeight;
        header.fps = 30.0F;
        header.has_imu = true;
        header.compression_mode = RLX_RAW;
        return recorder.create(path.c_str(), header);
    }
    static int write(rlxrw::RLXVideo& recorder, uint64_t number) {
        const std::vector<unsigned char> pixels = imageOf(number);
        const std::vector<IMUPacket> packets = packetsOf(number);
        const IMUPacket sample = sampleOf(number);
        return recorder.writeFrame({pixels.data(), pixels.size(), timeOf(number), metadataOf(number), &sample,
                                    packets.data(), packets.size()});
    }
    /// A reader of a file with frames 0 to count - 1.
    void openReader(uint64_t count) {
        const auto recorder = subject->make();
        ASSERT_EQ(create(*recorder), 0);
        for (uint64_t number = 0; number < count; ++number) {
            ASSERT_EQ(write(*recorder, number), 0);
        }
        recorder->close();
        EXPECT_EQ(recorder->counters().delivered, count) << "told even after the end of the recording";
        ASSERT_EQ(reader->open(path.c_str()), 0);
    }
    FrameStatus read() { return reader->readFrame(image.data(), image.size(), time); }

    std::unique_ptr<RecordingSubject> subject = GetParam().make();
    std::string path = subject->path();
    std::unique_ptr<rlxrw::RLXVideo> reader = subject->make();
    std::vector<unsigned char> image = std::vector<unsigned char>(std::size_t{kWidth} * kHeight * 2);
    Timestamp time = 0;
};

TEST_P(RecordingContract, HasNothingWhileNoFileIsOpenAndMayBeClosedAgain) {
    openReader(1);
    ASSERT_EQ(read(), NEW_FRAME);
    for (int round = 0; round < 2; ++round) {
        reader->close();

        EXPECT_EQ(reader->getRLXVersion(), 0);
        EXPECT_EQ(reader->v1(), nullptr);
        EXPECT_EQ(reader->v2(), nullptr);
        EXPECT_EQ(reader->frameCount(), 0);
        EXPECT_EQ(read(), SOURCE_UNAVAILABLE);
        rlxrw::rlxSampleMetadata metadata;
        EXPECT_FALSE(reader->getCurrentMetadata(metadata));
        EXPECT_TRUE(reader->getFrameIMUPackets().empty());
    }
    EXPECT_EQ(reader->open((path + ".missing").c_str()), 1);
    EXPECT_EQ(reader->open(path.c_str()), 0);
}

TEST_P(RecordingContract, TellsTheFactsOfItsHead) {
    openReader(3);

    EXPECT_EQ(reader->getRLXVersion(), 2);
    EXPECT_EQ(reader->v1(), nullptr);
    ASSERT_NE(reader->v2(), nullptr);
    EXPECT_EQ(reader->v2()->serial_number, 30'010'001);
    EXPECT_EQ(reader->v2()->width, int{kWidth});
    EXPECT_EQ(reader->v2()->height, int{kHeight});
    EXPECT_EQ(reader->getCameraModel(), MODEL_MONO_3UM);
    EXPECT_TRUE(reader->hasIMUData());
    EXPECT_EQ(reader->getCompressionMode(), RLX_RAW);
    EXPECT_EQ(reader->frameCount(), 3);
    EXPECT_EQ(reader->frameTime(2), timeOf(2));
    EXPECT_EQ(reader->frameTime(3), 0U);
}

TEST_P(RecordingContract, GivesEveryFrameInOrderWithWhatBelongsToItThenTheEnd) {
    openReader(4);
    for (uint64_t number = 0; number < 4; ++number) {
        EXPECT_EQ(reader->position(), static_cast<int>(number));
        ASSERT_EQ(read(), NEW_FRAME);

        EXPECT_EQ(image, imageOf(number));
        EXPECT_EQ(time, timeOf(number));
        EXPECT_EQ(reader->getFrameIMUPackets(), packetsOf(number));
        IMUPacket sample;
        EXPECT_TRUE(reader->getFrameIMU(sample));
        EXPECT_EQ(sample, sampleOf(number));
        rlxrw::rlxSampleMetadata metadata;
        ASSERT_TRUE(reader->getCurrentMetadata(metadata));
        EXPECT_EQ(std::memcmp(metadata.bytes, metadataOf(number).bytes, sizeof(metadata.bytes)), 0);
    }

    EXPECT_EQ(read(), INPUT_ENDED);
    EXPECT_EQ(read(), INPUT_ENDED);
    EXPECT_EQ(reader->position(), reader->frameCount());
    EXPECT_EQ(image, imageOf(3)) << "the end leaves the pixels";
    const FrameCounters counters = reader->counters();
    EXPECT_EQ(counters.delivered, 4U);
    EXPECT_EQ(counters.produced, counters.delivered + counters.lost());
}

TEST_P(RecordingContract, SkippedFramesCountAsLateAndGiveTheirPacketsToTheNext) {
    openReader(6);

    reader->setPosition(2);
    reader->skipFrame();
    reader->skipFrame();
    ASSERT_EQ(read(), NEW_FRAME);

    EXPECT_EQ(time, timeOf(4));
    EXPECT_EQ(reader->getFrameIMUPackets().size(), 2U + 3U + 4U);
    EXPECT_EQ(reader->counters().late, 2U);
    EXPECT_EQ(reader->counters().produced, 3U);
    reader->setPosition(1000);
    EXPECT_EQ(read(), INPUT_ENDED);
    reader->setPosition(0);
    ASSERT_EQ(read(), NEW_FRAME);
    EXPECT_EQ(time, timeOf(0));
}

TEST_P(RecordingContract, WritesNoByteIntoAnImageOfAnotherSize) {
    openReader(1);
    std::vector<unsigned char> small(image.size() - 2, 7);

    EXPECT_EQ(reader->readFrame(small.data(), small.size(), time), SOURCE_ERROR);

    EXPECT_EQ(small, std::vector<unsigned char>(small.size(), 7));
    EXPECT_EQ(read(), NEW_FRAME) << "the frame is still there";
}

TEST_P(RecordingContract, KeepsWrittenPacketsInOrderUntilTheyAreTaken) {
    const auto recorder = subject->make();
    ASSERT_EQ(create(*recorder), 0);
    recorder->writeCurrentIMU(sampleOf(1));
    recorder->writeCurrentIMU(sampleOf(2));
    std::vector<IMUPacket> packets{sampleOf(0)};

    recorder->takeWrittenPackets(packets);
    recorder->takeWrittenPackets(packets);

    EXPECT_EQ(packets, (std::vector<IMUPacket>{sampleOf(0), sampleOf(1), sampleOf(2)}));
}

}  // namespace
}  // namespace oru
