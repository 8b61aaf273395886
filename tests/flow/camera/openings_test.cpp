// One camera object, several openings: each starts anew, and each ends whole.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "backends/stream/stream_fixture.hpp"
#include "doubles/LogCapture.hpp"
#include "doubles/ScopedEnvironment.hpp"
#include "doubles/TemporaryDirectory.hpp"
#include "oru/CameraOne.hpp"

namespace oru::test {
namespace {

using doubles::ScopedEnvironment;

constexpr char kKey[] = "key-of-the-first";
constexpr char kOtherKey[] = "key-of-the-second";

bool waitFor(const std::function<bool()>& condition) {
    for (int i = 0; i < 1000 && !condition(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return condition();
}

bool isFree(uint16_t port) {
    const int handle = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    const bool bound = ::bind(handle, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    ::close(handle);
    return bound;
}

class Openings : public testing::Test {
protected:
    ERROR_CODE openLive(CameraOne& camera, int id = 0, RESOLUTION resolution = HD1200) const {
        InitParametersOne parameters;
        parameters.settings_path = directory.prefix().c_str();
        parameters.requested_resolution = resolution;
        parameters.input.setFromCameraID(id);
        return camera.open(parameters);
    }
    ERROR_CODE openStream(CameraOne& camera, uint16_t port) const {
        InitParametersOne parameters;
        parameters.settings_path = directory.prefix().c_str();
        parameters.input.setFromStream("127.0.0.1", port);
        return camera.open(parameters);
    }
    static ERROR_CODE send(CameraOne& camera, uint16_t port) {
        StreamingParameters parameters;
        parameters.codec = PLAIN_CODEC;
        parameters.port = port;
        return camera.enableStreaming(parameters);
    }

    doubles::TemporaryDirectory directory;
};

TEST_F(Openings, CloseFreesThePortAndLetsTheReceiversGo) {
    const uint16_t port = freePort();
    CameraOne sender;
    CameraOne receiver;
    ASSERT_EQ(openLive(sender, 0, HD600), SUCCESS);
    ASSERT_EQ(send(sender, port), SUCCESS);
    ASSERT_EQ(openStream(receiver, port), SUCCESS);
    ASSERT_FALSE(isFree(port));
    ASSERT_EQ(sender.getStreamingStatus().receivers, 1U);

    EXPECT_EQ(receiver.close(), SUCCESS);
    EXPECT_TRUE(waitFor([&] { return sender.getStreamingStatus().receivers == 0; }));
    EXPECT_EQ(sender.close(), SUCCESS);
    EXPECT_TRUE(waitFor([port] { return isFree(port); }));
    EXPECT_FALSE(sender.isStreamingEnabled());
}

TEST_F(Openings, NothingOfTheOneBeforeSurvives) {
    CameraOne camera;
    ASSERT_EQ(openLive(camera, 1), SUCCESS);
    ASSERT_EQ(camera.setCameraSettings(GAIN, 40), SUCCESS);
    EXPECT_EQ(openLive(camera, 1, HD600), DEVICE_SETUP_FAILED) << "it has no such size";
    EXPECT_FALSE(camera.isOpened());
    EXPECT_EQ(camera.getInitParameters().requested_resolution, HD600) << "what was asked last";

    ASSERT_EQ(openLive(camera, 0, HD600), SUCCESS) << "the model of the camera before must not refuse this one";
    ASSERT_EQ(camera.grab(), SUCCESS);
    ASSERT_EQ(camera.setCameraSettings(GAIN, 40), SUCCESS);
    ASSERT_EQ(camera.close(), SUCCESS);
    EXPECT_EQ(camera.getTimestamp(IMAGE), 0U);
    ASSERT_EQ(openLive(camera, 0, HD600), SUCCESS);
    ASSERT_EQ(camera.setCameraSettings(GAIN, 40), SUCCESS);
    int gain = -1;
    EXPECT_EQ(camera.getCameraSettings(GAIN, gain), SUCCESS);
    EXPECT_EQ(gain, 40) << "a write that was right before must reach this opening's device";
}

TEST_F(Openings, CloseAndOpenWaitForTheGrabOfAnotherThread) {
    CameraOne camera;
    std::atomic<int> frames{0};
    std::atomic<int> refused{0};
    std::jthread grabbing([&](const std::stop_token& stop) {
        Mat view;
        while (!stop.stop_requested()) {
            const bool grabbed = camera.grab() == SUCCESS;
            grabbed ? ++frames : ++refused;
            if (!grabbed) {
                std::this_thread::yield();
            }
        }
    });
    for (int i = 0; i < 3; ++i) {
        const int before = frames;
        ASSERT_EQ(openLive(camera, 0, HD600), SUCCESS);
        EXPECT_TRUE(waitFor([&] { return frames > before + 3; }));
        EXPECT_EQ(camera.close(), SUCCESS);
        const int counted = frames;
        const int refusedBefore = refused;
        EXPECT_TRUE(waitFor([&] { return refused > refusedBefore + 1; }));
        EXPECT_LE(frames, counted + 1) << "one grab may just have ended";
    }
}

TEST_F(Openings, MoveWithTheirStream) {
    const uint16_t port = freePort();
    std::vector<CameraOne> cameras;
    {
        CameraOne camera;
        ASSERT_EQ(openLive(camera, 0, HD600), SUCCESS);
        ASSERT_EQ(send(camera, port), SUCCESS);
        cameras.push_back(std::move(camera));
    }
    EXPECT_TRUE(cameras[0].isOpened());
    EXPECT_TRUE(cameras[0].isStreamingEnabled());
    EXPECT_EQ(cameras[0].grab(), SUCCESS);
    cameras[0] = CameraOne();
    EXPECT_FALSE(cameras[0].isOpened());
    EXPECT_TRUE(waitFor([port] { return isFree(port); })) << "what is assigned to ends first";
}

TEST_F(Openings, TwoStreamsOfOneProgramHaveTheirOwnKeys) {
    const ScopedEnvironment environment("KORU_STREAM_PASSPHRASE", "key-of-the-environment");
    doubles::LogCapture log;
    const uint16_t port = freePort();
    const uint16_t otherPort = freePort();
    CameraOne first;
    CameraOne second;
    first.setOutputStreamKeys({kKey, std::nullopt});
    second.setOutputStreamKeys({"", kOtherKey});
    ASSERT_EQ(openLive(first, 0, HD600), SUCCESS);
    ASSERT_EQ(openLive(second, 1), SUCCESS);
    ASSERT_EQ(send(first, port), SUCCESS);
    ASSERT_EQ(send(second, otherPort), SUCCESS);

    CameraOne receiver;
    EXPECT_EQ(openStream(receiver, port), STREAM_SETUP_FAILED) << "the key of the environment";
    receiver.setInputStreamKeys({kKey, std::nullopt});
    EXPECT_EQ(openStream(receiver, port), SUCCESS);
    EXPECT_EQ(openStream(receiver, port), SUCCESS) << "keys stay for the next opening";
    EXPECT_EQ(openStream(receiver, otherPort), STREAM_SETUP_FAILED) << "the other stream is open to all";
    receiver.setInputStreamKeys({"", kOtherKey});
    EXPECT_EQ(openStream(receiver, otherPort), SUCCESS);
    EXPECT_EQ(receiver.setCameraSettings(GAIN, 33), SUCCESS);
    EXPECT_STREQ(receiver.getControlRefusal().c_str(), "");

    receiver.setInputStreamKeys({"short", std::nullopt});
    EXPECT_EQ(openStream(receiver, port), STREAM_SETUP_FAILED);
    for (const LogRecord& record : log.records()) {
        EXPECT_EQ(record.text.find(kKey), std::string::npos) << record.text;
        EXPECT_EQ(record.text.find(kOtherKey), std::string::npos) << record.text;
    }
    EXPECT_EQ(log.count(LogLevel::Error,
                        "[Streaming]  the viewing key must have 10 to 79 characters and has 5; set a key of such a "
                        "length, or none"),
              1);
}

}  // namespace
}  // namespace oru::test
