// A recording that is streamed out, received and recorded again.

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "backends/stream/stream_fixture.hpp"
#include "collaborators/CollaboratorFactory.hpp"
#include "doubles/TemporaryDirectory.hpp"
#include "oru/CameraOne.hpp"

namespace oru::test {
namespace {

/// What a file holds of one frame besides its image.
struct RecordedFrame {
    Timestamp time = 0;
    rlxrw::rlxSampleMetadata metadata{};
    std::vector<IMUPacket> packets;
};

std::vector<RecordedFrame> framesOf(const std::string& path) {
    std::vector<RecordedFrame> frames;
    const auto reader = CollaboratorFactory::processDefault()->makeRlxVideo(CollaboratorFactory::RlxRole::reader);
    EXPECT_EQ(reader->open(path.c_str()), rlxrw::RLX_OPENED);
    const rlxrw::RlxHeaderV2* header = reader->v2();
    std::vector<unsigned char> pixels(header == nullptr ? 0
                                                        : std::size_t{2} * static_cast<std::size_t>(header->width) *
                                                              static_cast<std::size_t>(header->height));
    while (reader->position() < reader->frameCount()) {
        RecordedFrame frame;
        EXPECT_EQ(reader->readFrame(pixels.data(), pixels.size(), frame.time), NEW_FRAME);
        EXPECT_TRUE(reader->getCurrentMetadata(frame.metadata));
        frame.packets = reader->getFrameIMUPackets();
        frames.push_back(frame);
    }
    return frames;
}

std::vector<IMUPacket> packetsOf(const std::vector<RecordedFrame>& frames) {
    std::vector<IMUPacket> packets;
    for (const RecordedFrame& frame : frames) {
        packets.insert(packets.end(), frame.packets.begin(), frame.packets.end());
    }
    return packets;
}

class RoundTrip : public testing::Test {
protected:
    void recordLiveCamera(const std::string& path, int frames) {
        CameraOne camera;
        InitParametersOne parameters;
        parameters.settings_path = directory.prefix().c_str();
        parameters.requested_resolution = HD600;
        parameters.requested_fps = 30;
        ASSERT_EQ(camera.open(parameters), SUCCESS);
        RecordingParameters recording;
        recording.video_filename = path.c_str();
        ASSERT_EQ(camera.enableRecording(recording), SUCCESS);
        for (int i = 0; i < frames; ++i) {
            ASSERT_EQ(camera.grab(), SUCCESS);
        }
    }
    /// Plays the file into a stream and records what comes out of it, frame by frame.
    void streamAndRecord(const std::string& from, const std::string& to) {
        CameraOne player;
        InitParametersOne playing;
        playing.settings_path = directory.prefix().c_str();
        playing.input.setFromFile(from.c_str());
        playing.rlx_real_time = false;  // frame by frame, so that a busy machine leaves none out
        ASSERT_EQ(player.open(playing), SUCCESS);
        StreamingParameters streaming;
        streaming.codec = PLAIN_CODEC;
        streaming.port = freePort();
        ASSERT_EQ(player.enableStreaming(streaming), SUCCESS);
        // The first frame tells the receiver of the inertial data.
        std::thread first([&] {
            while (player.getStreamingStatus().receivers == 0 && !failed) {
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
            (void)player.grab();
        });
        CameraOne receiver;
        InitParametersOne receiving;
        receiving.settings_path = elsewhere.prefix().c_str();
        receiving.input.setFromStream("127.0.0.1", streaming.port);
        const ERROR_CODE opened = receiver.open(receiving);
        failed = opened != SUCCESS;
        first.join();
        ASSERT_EQ(opened, SUCCESS);
        RecordingParameters recording;
        recording.video_filename = to.c_str();
        recording.compression_mode = RLX_RAW;
        ASSERT_EQ(receiver.enableRecording(recording), SUCCESS);
        do {
            ASSERT_EQ(receiver.grab(), SUCCESS);
            ASSERT_EQ(receiver.getTimestamp(IMAGE), player.getTimestamp(IMAGE));
        } while (player.grab() == SUCCESS);
        receiver.disableRecording();
        EXPECT_EQ(receiver.getFrameCounters().lost(), 0U);
        EXPECT_EQ(receiver.getRecordingStatus().frames_dropped, 0U);
    }

    doubles::TemporaryDirectory directory;
    doubles::TemporaryDirectory elsewhere;
    std::atomic<bool> failed{false};
};

TEST_F(RoundTrip, KeepsEveryTimestampMetadataRecordAndSample) {
    const std::string original = directory.path("original.rlx2");
    const std::string again = elsewhere.path("again.rlx2");
    ASSERT_NO_FATAL_FAILURE(recordLiveCamera(original, 30));

    ASSERT_NO_FATAL_FAILURE(streamAndRecord(original, again));

    const std::vector<RecordedFrame> before = framesOf(original);
    const std::vector<RecordedFrame> after = framesOf(again);
    ASSERT_GT(before.size(), 20U);
    ASSERT_EQ(after.size(), before.size());
    for (std::size_t i = 0; i < before.size(); ++i) {
        EXPECT_EQ(after[i].time, before[i].time) << "frame " << i;
        EXPECT_EQ(std::memcmp(after[i].metadata.bytes, before[i].metadata.bytes, sizeof(before[i].metadata)), 0)
            << "frame " << i;
    }
    std::vector<IMUPacket> sent = packetsOf(before);
    // With a received image come the samples that are earlier than it; one of the very instant of the last image would
    // come with the next.
    const Timestamp last = before.back().time;
    EXPECT_LE(std::erase_if(sent, [&](const IMUPacket& packet) { return packet.imu_timestamp >= last; }), 1U);
    const std::vector<IMUPacket> kept = packetsOf(after);
    ASSERT_GT(sent.size(), 100U);
    EXPECT_EQ(kept.size(), sent.size());
    EXPECT_TRUE(kept == sent);
}

}  // namespace
}  // namespace oru::test
