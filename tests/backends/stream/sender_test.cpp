// What a sender does when something fails around it.
#include <gtest/gtest.h>

extern "C" {
#include <libavutil/frame.h>
}

#include <climits>
#include <stdexcept>

#include "backends/stream/Loopback.hpp"
#include "backends/stream/sender/FrameTransmitter.hpp"
#include "doubles/LogCapture.hpp"
#include "doubles/ScopedEnvironment.hpp"
#include "doubles/live_doubles.hpp"

namespace oru::test {
namespace {

using doubles::LogCapture;
using doubles::ScopedEnvironment;

constexpr char kDefect[] = "the camera has gone mad";

[[noreturn]] void fail() {
    throw std::runtime_error(kDefect);
}

class FailingCamera : public Loopback {
protected:
    FailingCamera() { (void)camera.setUp(id, 320, 240, 30, 0, false, IMU_FREQ_2, false, false); }
    void TearDown() override {
        Loopback::TearDown();
        sender.reset();
    }

    int id = 0;
    doubles::CallLog calls;
    doubles::GrabberScript script;
    doubles::ScriptedGrabber camera{script, calls, GMSL};
    LogCapture log;
};

TEST_F(FailingCamera, CostsItsControlsAndNotTheStream) {
    const ScopedEnvironment key("KORU_STREAM_CONTROL_PASSPHRASE", "only for the operator");
    script.onRange = &fail;
    startSender(streamConfiguration(freePort()));
    EXPECT_NO_THROW(sender->setGrabber(&camera));
    startSource();
    const auto receiver = connect();
    ASSERT_NE(receiver, nullptr);

    ASSERT_TRUE(readNext(*receiver, image));
    EXPECT_NE(receiver->setGrabberSettingsValue(GAIN, 7, false), 0);
    EXPECT_EQ(receiver->controlRefusal(), "the sending camera did not take it");
    EXPECT_TRUE(readNext(*receiver, image)) << "the stream goes on";
    EXPECT_GE(log.count(LogLevel::Error, std::string("[Streaming]  a control failed: ") + kDefect), 1);
}

TEST(StreamSender, RefusesNumbersThatNoCameraHas) {
    const std::unique_ptr<Clock> clock = makeSystemClock();
    CalibrationKeeper texts;
    const auto sender = makeStreamSender(*clock, texts, false);
    const auto opened = [&](auto change) {
        UDPOutConfig configuration = streamConfiguration(freePort());
        change(configuration);
        const int result = sender->open(configuration);
        EXPECT_EQ(sender->isRunning(), result == SENDER_RUNNING);
        return result;
    };
    EXPECT_EQ(opened([](UDPOutConfig& c) { c.fps = -30; }), SENDER_BAD_CONFIGURATION);
    EXPECT_EQ(opened([](UDPOutConfig& c) { c.fps = INT_MIN; }), SENDER_BAD_CONFIGURATION);
    EXPECT_EQ(opened([](UDPOutConfig& c) { c.fps = INT_MAX; }), SENDER_BAD_CONFIGURATION);
    EXPECT_EQ(opened([](UDPOutConfig& c) { c.bitrate = UINT32_MAX; }), SENDER_BAD_CONFIGURATION);
    EXPECT_EQ(opened([](UDPOutConfig& c) { c.gop_size = INT_MAX; }), SENDER_BAD_CONFIGURATION);
    EXPECT_EQ(opened([](UDPOutConfig& c) { c.width = UINT32_MAX - 1; }), SENDER_BAD_CONFIGURATION);
    EXPECT_EQ(opened([](UDPOutConfig& c) { c.codec = -1; }), SENDER_BAD_CONFIGURATION);
    EXPECT_EQ(opened([](UDPOutConfig& c) { c.fps = 0; }), SENDER_RUNNING) << "a file that tells no rate";
}

TEST(FrameTransmitter, AnEncoderThatFailedGoesOnAtTheAdaptedBitrate) {
    const std::unique_ptr<Clock> clock = makeSystemClock();
    const UDPOutConfig configuration = streamConfiguration(freePort());
    stream::Subscribers nobody(*clock, {}, {});
    stream::CameraDescriber describer(configuration, 1, "");
    stream::SampleQueue samples;
    stream::FrameTransmitter transmitter(nobody, describer, samples, 1);
    ASSERT_TRUE(transmitter.open(configuration));
    ASSERT_EQ(transmitter.bitrate(), configuration.bitrate);
    ASSERT_TRUE(transmitter.setBitrate(configuration.bitrate / 2));

    stream::OutgoingFrame unusable;
    unusable.image.reset(av_frame_alloc());  // without pixels
    EXPECT_FALSE(transmitter.sendFrame(unusable, 1, true, 0));

    EXPECT_EQ(transmitter.bitrate(), configuration.bitrate / 2);
}

}  // namespace
}  // namespace oru::test
