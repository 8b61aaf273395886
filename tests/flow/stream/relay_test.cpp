// A camera that receives a stream and sends it on.

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "backends/stream/Loopback.hpp"
#include "collaborators/frame_metadata.hpp"
#include "doubles/TemporaryDirectory.hpp"
#include "oru/CameraOne.hpp"

namespace oru::test {
namespace {

constexpr uint32_t kWidth = 960;
constexpr uint32_t kHeight = 600;
constexpr char kCalibration[] =
    "[MISC]\nSensor_ID=1\n[CAM_svga]\nfx=500\nfy=500\ncx=480\ncy=300\n[DISTO]\nk1=0\nk2=0\np1=0\np2=0\nk3=0\n";

/// Grabs as long as it lives.
class Relay {
public:
    Relay(uint16_t from, uint16_t to) {
        InitParametersOne parameters;
        parameters.settings_path = directory.prefix().c_str();
        parameters.input.setFromStream("127.0.0.1", from);
        StreamingParameters streaming;
        streaming.codec = PLAIN_CODEC;
        streaming.port = to;
        opened = camera.open(parameters);
        streams = opened == SUCCESS ? camera.enableStreaming(streaming) : FAILURE;
        thread = std::thread([this] {
            while (!stopWanted && streams == SUCCESS) {
                (void)camera.grab();
            }
        });
    }
    ~Relay() {
        stopWanted = true;
        thread.join();
    }
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;

    ERROR_CODE opened = FAILURE;
    ERROR_CODE streams = FAILURE;
    CameraOne camera;

private:
    doubles::TemporaryDirectory directory;
    std::atomic<bool> stopWanted{false};
    std::thread thread;
};

class Relayed : public Loopback {
protected:
    void startRelay() {
        senderTexts.offer(4711, kCalibration);
        start(streamConfiguration(freePort(), kWidth, kHeight));
        port = freePort();
        relay = std::make_unique<Relay>(settings.port, port);
        ASSERT_EQ(relay->opened, SUCCESS);
        ASSERT_EQ(relay->streams, SUCCESS);
        receiver = makeReceiver();
        ASSERT_EQ(receiver->open("127.0.0.1", port, 0), 0);
    }
    void TearDown() override {
        receiver.reset();
        relay.reset();
        Loopback::TearDown();
    }

    uint16_t port = 0;
    std::unique_ptr<Relay> relay;
    std::unique_ptr<UDPInput> receiver;
};

TEST_F(Relayed, KeepsIdsTimesMetadataAndSamples) {
    ASSERT_NO_FATAL_FAILURE(startRelay());
    ASSERT_TRUE(readNext(*receiver, image));
    (void)receiver->takeImuPacketsBefore(receiver->frameTimestamp());

    const uint64_t first = readImage(image, kWidth, kHeight).number;
    uint64_t frames = 1;
    uint64_t number = first;
    std::vector<IMUPacket> got;
    while (number < first + 60) {
        ASSERT_TRUE(readNext(*receiver, image));
        const SeenImage seen = readImage(image, kWidth, kHeight);
        EXPECT_LT(seen.mean_error, 10.0);
        EXPECT_GT(seen.number, number);
        EXPECT_EQ(receiver->frameTimestamp(), numberedTime(seen.number));
        ASSERT_TRUE(receiver->frameHasMetadata());
        const rlxrw::rlxSampleMetadata expected = numberedMetadata(seen.number);
        const rlxrw::rlxSampleMetadata metadata = receiver->frameMetadata();
        EXPECT_EQ(std::memcmp(metadata.bytes, expected.bytes, sizeof(expected)), 0);
        const auto taken = receiver->takeImuPacketsBefore(receiver->frameTimestamp());
        got.insert(got.end(), taken.begin(), taken.end());
        number = seen.number;
        ++frames;
    }
    // Samples may come with the frame after their own; at either end some frames' are left out.
    const uint64_t from = first + 3;
    const uint64_t to = number - 3;
    std::erase_if(got, [&](const IMUPacket& packet) {
        return packet.imu_timestamp < numberedTime(from) - 20000000 || packet.imu_timestamp > numberedTime(to);
    });
    std::vector<IMUPacket> expected;
    for (uint64_t i = from; i <= to; ++i) {
        const auto samples = numberedSamples(i, numberedTime(i), 4);
        expected.insert(expected.end(), samples.begin(), samples.end());
    }

    EXPECT_EQ(got.size(), expected.size());
    EXPECT_TRUE(got == expected);
    const FrameCounters in = relay->camera.getFrameCounters();
    const FrameCounters out = receiver->counters();
    EXPECT_EQ(in.lost(), in.overwritten + in.sender_busy) << "only a slow machine may lose here";
    EXPECT_EQ(out.lost(), out.overwritten + out.sender_busy);
    EXPECT_LE(number - first + 1 - frames, in.lost() + out.lost());
}

TEST_F(Relayed, AnnouncesWhatItForwards) {
    ASSERT_NO_FATAL_FAILURE(startRelay());

    const StreamDescription seen = receiver->description();
    EXPECT_EQ(seen.serial_number, 4711);
    EXPECT_EQ(seen.model, MODEL_MONO_3UM);
    EXPECT_EQ(seen.camera_fw, 513U);
    EXPECT_EQ(seen.sensors_fw, 1027U);
    EXPECT_EQ(seen.width, kWidth);
    EXPECT_EQ(seen.height, kHeight);
    EXPECT_TRUE(seen.has_imu);
    EXPECT_EQ(receiver->announcedFps(), 30);
    EXPECT_EQ(receiverTexts.text(4711), kCalibration);
    const StreamImuPose announced = receiver->announcedImuPose();
    const auto posed = [&](uint64_t number) {
        const auto [q, t] = rlxrw::poseOf(numberedMetadata(number));
        const StreamImuPose pose{q[3], q[0], q[1], q[2], t[0], t[1], t[2]};
        return std::memcmp(&pose, &announced, sizeof(pose)) == 0;
    };
    ASSERT_TRUE(readNext(*receiver, image));
    const uint64_t number = readImage(image, kWidth, kHeight).number;
    bool found = false;
    for (uint64_t candidate = number > 100 ? number - 100 : 1; candidate <= number + 100; ++candidate) {
        found = found || posed(candidate);
    }
    EXPECT_TRUE(found) << "the pose is none of those that were sent";
}

}  // namespace
}  // namespace oru::test
