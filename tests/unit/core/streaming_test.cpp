#include "doubles/camera_fixture.hpp"

namespace oru {
namespace {

using doubles::CameraTest;
using doubles::ScopedEnvironment;

class Streaming : public CameraTest {
protected:
    void openAt(int fps) {
        factory->grabber.fps = fps;
        ASSERT_EQ(openLive(), SUCCESS);
        logged.clear();
    }
    [[nodiscard]] const UDPOutConfig& sent() const { return factory->streamOutput.configuration; }
};

TEST_F(Streaming, DefaultsAreCompletedFromTheSource) {
    openAt(30);

    ASSERT_EQ(camera->enableStreaming({}), SUCCESS);

    EXPECT_EQ(sent().codec, DENSE_CODEC);
    EXPECT_EQ(sent().port, 30000);
    EXPECT_EQ(sent().bitrate, 11059U);
    EXPECT_EQ(sent().gop_size, 60);
    EXPECT_EQ(sent().chunk_size, 16084);
    EXPECT_EQ(sent().width, 1920U);
    EXPECT_EQ(sent().fps, 30);
    EXPECT_EQ(sent().serial_number, 30010001U);
    EXPECT_EQ(sent().sensors_fw, 517U);
    EXPECT_EQ(sent().model, MODEL_MONO_3UM);
    EXPECT_EQ(sent().version, 2);
    EXPECT_TRUE(logged.texts(LogLevel::Warning).empty());
    EXPECT_LT(calls.at("makeStreamOutput false"), calls.at("setGrabber"));
    EXPECT_TRUE(camera->isStreamingEnabled());
    factory->streamOutput.running = false;
    EXPECT_FALSE(camera->isStreamingEnabled());
}

TEST_F(Streaming, TargetRateMustDivideTheSource) {
    for (const auto& [target, fps, warned] : std::vector<std::tuple<uint32_t, int, bool>>{
             {15, 15, false}, {30, 30, false}, {60, 30, true}, {20, 30, true}, {0, 30, false}, {10, 30, true}}) {
        openAt(30);
        StreamingParameters asked;
        asked.target_fps = target;
        ASSERT_EQ(camera->enableStreaming(asked), SUCCESS);
        EXPECT_EQ(sent().fps, fps) << target;
        EXPECT_EQ(logged.count(LogLevel::Warning, fmt::format("[Streaming]  Requested target FPS for streaming is not "
                                                              "valid ({} fps). Target FPS will be reset to 30.",
                                                              target)),
                  warned ? 1 : 0);
        EXPECT_EQ(camera->getStreamingParameters().target_fps, target);
    }
}

TEST_F(Streaming, ParametersOutOfRangeAreClampedWithAWarning) {
    struct Case {
        StreamingParameters asked;
        uint32_t bitrate;
        int gop;
        uint16_t chunk;
        const char* warning;
    };
    const std::vector<Case> cases{
        {{PLAIN_CODEC, 1, 0, 300, false, 16084, 0},
         13824,
         256,
         16084,
         "[Streaming]  Requested gop_size: 300, maximum accepted value: 256, the value is clamped."},
        {{PLAIN_CODEC, 1, 0, 0, false, 500, 0},
         13824,
         60,
         1024,
         "[Streaming]  Requested chunk_size: 500, minimum accepted value: 1024, the value is clamped."},
        {{PLAIN_CODEC, 1, 0, 0, false, 65535, 0},
         13824,
         60,
         65000,
         "[Streaming]  Requested chunk_size: 65535, maximum accepted value: 65000, the value is clamped."},
        {{PLAIN_CODEC, 1, 100000, 0, false, 1024, 0},
         60000,
         60,
         1024,
         "[Streaming]  Requested bitrate: 100000, maximum accepted value: 60000, the value is clamped."},
        {{PLAIN_CODEC, 1, 999, 0, false, 65000, 0},
         1000,
         60,
         65000,
         "[Streaming]  Requested bitrate: 999, minimum accepted value: 1000, the value is clamped."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.warning);
        openAt(30);
        ASSERT_EQ(camera->enableStreaming(c.asked), SUCCESS);
        EXPECT_EQ(sent().bitrate, c.bitrate);
        EXPECT_EQ(sent().gop_size, c.gop);
        EXPECT_EQ(sent().chunk_size, c.chunk);
        EXPECT_EQ(camera->getStreamingParameters().bitrate, c.bitrate);
        EXPECT_EQ(logged.texts(LogLevel::Warning), std::vector<std::string>{c.warning});
    }
}

TEST_F(Streaming, SourceWithoutARateStillStreams) {
    factory->rlx.v2.fps = 0.0F;
    ASSERT_EQ(openFile(), SUCCESS);
    logged.clear();
    StreamingParameters asked;
    asked.target_fps = 15;

    ASSERT_EQ(camera->enableStreaming(asked), SUCCESS);

    EXPECT_EQ(sent().fps, 0);
    EXPECT_EQ(sent().gop_size, 0);
    EXPECT_EQ(sent().bitrate, 1000U);
    EXPECT_EQ(logged.texts(LogLevel::Warning).size(), 2U);
    factory->streamInput.fps = -3;
    ASSERT_EQ(openStream(), SUCCESS);
    ASSERT_EQ(camera->enableStreaming({}), SUCCESS);
    EXPECT_EQ(sent().fps, 0) << "a negative announced rate counts as none";
    parameters.input = {};
    openAt(-30);
    ASSERT_EQ(camera->enableStreaming({}), SUCCESS);
    EXPECT_EQ(sent().fps, 0) << "so does a device's";
}

TEST_F(Streaming, SecondEnableReplacesTheSender) {
    openAt(30);
    const ScopedEnvironment version("KORU_SDK_STREAM_VERSION", "1");
    ASSERT_EQ(camera->enableStreaming({}), SUCCESS);
    ASSERT_EQ(camera->enableStreaming({}), SUCCESS);

    EXPECT_EQ(calls.count("~streamOutput"), 1);
    EXPECT_EQ(calls.count("makeStreamOutput false"), 2);
    EXPECT_EQ(sent().version, 1);
    camera->disableStreaming();
    EXPECT_EQ(calls.count("~streamOutput"), 2);
    camera->disableStreaming();
    EXPECT_FALSE(camera->isStreamingEnabled());
    EXPECT_EQ(camera->getStreamingParameters().gop_size, 60) << "the last parameters in force stay";
}

TEST_F(Streaming, FrameOfAStreamGoesNowhereWhenTheSenderEndedDuringItsRead) {
    factory->streamInput.metadata.bytes[0] = 1;  // an orientation, so that the frame is passed on
    ASSERT_EQ(openStream(), SUCCESS);
    ASSERT_EQ(camera->enableStreaming({}), SUCCESS);
    ASSERT_EQ(camera->grab(), SUCCESS);
    ASSERT_EQ(factory->streamOutput.sent.size(), 1U);

    factory->streamInput.duringRead = [this] { camera->disableStreaming(); };

    EXPECT_EQ(camera->grab(), SUCCESS);
    EXPECT_EQ(factory->streamOutput.sent.size(), 1U);
}

TEST_F(Streaming, SenderThatDoesNotOpenIsDestroyed) {
    for (const auto& [status, expected] : std::vector<std::pair<int, ERROR_CODE>>{
             {SENDER_PORT_TAKEN, STREAM_SETUP_FAILED}, {SENDER_NO_MEMORY, FAILURE}}) {
        openAt(30);
        factory->streamOutput.opening = status;
        calls.clear();
        EXPECT_EQ(camera->enableStreaming({}), expected);
        EXPECT_TRUE(calls.has("~streamOutput"));
        EXPECT_FALSE(calls.has("setGrabber"));
        EXPECT_FALSE(camera->isStreamingEnabled());
        EXPECT_EQ(
            logged.count(LogLevel::Error, fmt::format("[Streaming]  Cannot enable streaming: Err Code {}", status)), 1);
        EXPECT_TRUE(everyMutexIsFree());
    }
    factory->hasStreams = false;
    EXPECT_EQ(camera->enableStreaming({}), NOT_SUPPORTED);
    EXPECT_TRUE(everyMutexIsFree());
}

}  // namespace
}  // namespace oru
