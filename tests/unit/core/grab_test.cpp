#include <cstring>
#include <thread>

#include "collaborators/frame_metadata.hpp"
#include "doubles/camera_fixture.hpp"

namespace oru {
namespace {

using doubles::CameraTest;

class Grab : public CameraTest {
protected:
    [[nodiscard]] long attempts(const char* call) { return calls.count(call); }
    void deliver(FrameStatus then) { factory->grabber.thenStatus = then; }
    [[nodiscard]] std::size_t pauses() const { return factory->scriptedClock.sleeps.size(); }
};

TEST_F(Grab, RefusesWhileNotOpen) {
    EXPECT_EQ(camera->grab(), CAMERA_UNAVAILABLE);
    EXPECT_TRUE(everyMutexIsFree());
    EXPECT_TRUE(logged.records().empty());
}

TEST_F(Grab, ReturnsNotReadyWhileAnotherGrabRuns) {
    ASSERT_EQ(openLive(), SUCCESS);
    ERROR_CODE second = SUCCESS;
    factory->grabber.onWait = [&] { std::thread([&] { second = camera->grab(); }).join(); };

    EXPECT_EQ(camera->grab(), SUCCESS);

    EXPECT_EQ(second, CAMERA_NOT_READY);
}

TEST_F(Grab, TakesTheFirstFrameWithoutAPause) {
    ASSERT_EQ(openLive(), SUCCESS);
    factory->grabber.statuses = {NO_FRAME, NEW_FRAME};

    EXPECT_EQ(camera->grab(), SUCCESS);

    EXPECT_EQ(pauses(), 0U) << "the first retry follows at once";
    EXPECT_EQ(attempts("waitForNewFrame 100"), 2);
    EXPECT_EQ(calls.all().back(), "process");
}

TEST_F(Grab, LiveBudgetsAndResultsFollowTheStatus) {
    struct Case {
        FrameStatus status;
        bool fastFail;
        ERROR_CODE expected;
        long attempts;
        std::size_t pauses;
    };
    for (const Case& c : std::vector<Case>{{NO_FRAME, false, CAMERA_NOT_READY, 5001, 5000},
                                           {NO_FRAME, true, CAMERA_NOT_READY, 51, 50},
                                           {INPUT_ENDED, false, END_OF_INPUT, 1, 0},
                                           {SOURCE_ERROR, false, FAILURE, 2, 1},
                                           {SOURCE_UNAVAILABLE, false, FAILURE, 2, 1},
                                           {SOURCE_ERROR, true, CAMERA_UNAVAILABLE, 2, 1}}) {
        SCOPED_TRACE(fmt::format("status {} fast {}", static_cast<int>(c.status), c.fastFail));
        parameters.fast_fail_grab = c.fastFail;
        ASSERT_EQ(openLive(), SUCCESS);
        calls.clear();
        factory->scriptedClock.sleeps.clear();
        deliver(c.status);

        EXPECT_EQ(camera->grab(), c.expected);

        EXPECT_EQ(attempts("waitForNewFrame 100"), c.attempts);
        EXPECT_EQ(pauses(), c.pauses);
        EXPECT_TRUE(everyMutexIsFree());
        EXPECT_EQ(inside.inspector().currentTimestamp, 0U);
    }
}

TEST_F(Grab, StreamAndFileHaveBudgetsOfTheirOwn) {
    parameters.fast_fail_grab = true;
    ASSERT_EQ(openStream(), SUCCESS);
    factory->streamInput.thenFrame = false;
    EXPECT_EQ(camera->grab(), CAMERA_NOT_READY);
    EXPECT_EQ(attempts("readStreamData"), 251);

    ASSERT_EQ(openFile(), SUCCESS);
    factory->rlx.thenStatus = NO_FRAME;
    EXPECT_EQ(camera->grab(), END_OF_INPUT);
    EXPECT_EQ(attempts("nextImageOfRLX false"), 1001);
    factory->rlx.thenStatus = INPUT_ENDED;
    EXPECT_EQ(camera->grab(), END_OF_INPUT);
}

TEST_F(Grab, AStreamThatEndedIsNotReadyAndItsStatusTellsWhy) {
    factory->streamInput.thenFrame = false;
    factory->streamInput.status.goodbye = true;
    factory->streamInput.status.samples_dropped = 5;
    EXPECT_FALSE(camera->getStreamInputStatus().goodbye) << "not open";
    ASSERT_EQ(openStream(), SUCCESS);

    EXPECT_EQ(camera->grab(), CAMERA_NOT_READY);
    EXPECT_TRUE(camera->getStreamInputStatus().goodbye);
    EXPECT_EQ(camera->getStreamInputStatus().samples_dropped, 5U);

    ASSERT_EQ(openFile(), SUCCESS);
    EXPECT_FALSE(camera->getStreamInputStatus().goodbye) << "of a stream alone";
}

TEST_F(Grab, KeepsWhatTheSourceKnowsOfTheFrame) {
    EXPECT_EQ(camera->getFrameInfo().known, 0U);
    ASSERT_EQ(openLive(), SUCCESS);
    ASSERT_EQ(camera->grab(), SUCCESS);
    EXPECT_EQ(camera->getFrameInfo().known, FrameInfo::CAPTURE_TIME) << "a grabber that knows nothing else";
    EXPECT_EQ(camera->getFrameInfo().capture_time, camera->getTimestamp(IMAGE));
    factory->grabber.info.known = FrameInfo::NUMBER | FrameInfo::EXPOSURE_TIME;
    factory->grabber.info.number = 41;
    factory->grabber.info.exposure_time_us = 900;
    ASSERT_EQ(camera->grab(), SUCCESS);
    EXPECT_EQ(camera->getFrameInfo().number, 41U);
    EXPECT_EQ(camera->getFrameInfo().exposure_time_us, 900U);
    (void)camera->close();
    EXPECT_EQ(camera->getFrameInfo().known, 0U);

    ASSERT_EQ(openStream(), SUCCESS);
    rlxrw::convertMetadataFromMCUData(factory->streamInput.metadata, {.orientation = {0, 0, 0, 1}});
    ASSERT_EQ(camera->grab(), SUCCESS);
    EXPECT_EQ(camera->getFrameInfo().known, FrameInfo::CAPTURE_TIME);
    EXPECT_EQ(camera->getFrameInfo().capture_time, camera->getTimestamp(IMAGE));
}

TEST_F(Grab, CameraWithoutASourceFailsAfterOneCycle) {
    inside.opened() = true;
    inside.inputMode() = INPUT_MODE_NONE;
    EXPECT_EQ(camera->grab(), FAILURE);
    EXPECT_EQ(pauses(), 1U);

    ASSERT_EQ(openLive(), SUCCESS);
    inside.grabber().reset();
    EXPECT_EQ(camera->grab(), FAILURE);
}

TEST_F(Grab, PauseCutShortGoesOnForTheRest) {
    ASSERT_EQ(openLive(), SUCCESS);
    factory->grabber.statuses = {NO_FRAME, NO_FRAME, NEW_FRAME};
    factory->scriptedClock.interruptions = 2;

    ASSERT_EQ(camera->grab(), SUCCESS);

    EXPECT_EQ(factory->scriptedClock.sleeps, (std::vector<uint64_t>{250'000, 125'000, 62'500}));
}

TEST_F(Grab, RateIsMeanedOverTheLastTenIntervals) {
    ASSERT_EQ(openLive(), SUCCESS);
    ASSERT_EQ(camera->grab(), SUCCESS);
    EXPECT_EQ(camera->getCurrentFPS(), 0.0F);
    for (int i = 0; i < 12; ++i) {
        factory->scriptedClock.now += i < 2 ? 1'000'000'000U : 20'000'000U;
        ASSERT_EQ(camera->grab(), SUCCESS);
    }

    EXPECT_FLOAT_EQ(camera->getCurrentFPS(), 50.0F);

    factory->scriptedClock.now -= 500'000'000U;
    ASSERT_EQ(camera->grab(), SUCCESS);
    EXPECT_FLOAT_EQ(camera->getCurrentFPS(), 50.0F) << "a clock that goes back gives no interval";
    factory->scriptedClock.now += 20'000'000U;
    ASSERT_EQ(camera->grab(), SUCCESS);
    EXPECT_FLOAT_EQ(camera->getCurrentFPS(), 50.0F);
}

TEST_F(Grab, DroppedFramesFollowTheSourcesTimes) {
    struct Case {
        uint64_t stepNs;
        bool backwards;
        uint32_t dropped;
        std::size_t rates;
    };
    ASSERT_EQ(openLive(), SUCCESS);
    ASSERT_EQ(camera->grab(), SUCCESS);
    FrameRateInspector& inspector = inside.inspector();
    uint32_t dropped = 0;
    for (const Case& c : std::vector<Case>{{16'700'000, false, 0, 1},
                                           {33'400'000, false, 1, 1},
                                           {0, false, 0, 0},
                                           {100'000'000, true, 0, 0},
                                           {26'000'000, false, 1, 1},
                                           {3'000'000'000'000'000'000, false, 4294967293U, 1}}) {
        SCOPED_TRACE(c.stepNs);
        const Timestamp last = inspector.currentTimestamp;
        factory->grabber.time = c.backwards ? last - c.stepNs : last + c.stepNs;

        ASSERT_EQ(camera->grab(), SUCCESS);

        dropped += c.dropped;
        EXPECT_EQ(inspector.droppedFrames, dropped);
        EXPECT_EQ(inspector.lastTimestamp, inspector.currentTimestamp);
    }
    EXPECT_EQ(inspector.droppedFrames, 4294967295U);
}

TEST_F(Grab, TimestampsAnswerForImageAndNow) {
    factory->grabber.time = 42;
    ASSERT_EQ(openLive(), SUCCESS);
    ASSERT_EQ(camera->grab(), SUCCESS);

    EXPECT_EQ(camera->getTimestamp(IMAGE), 42U);
    EXPECT_EQ(camera->getTimestamp(CURRENT), factory->scriptedClock.now);
    EXPECT_EQ(camera->getTimestamp(static_cast<TIME_REFERENCE>(5)), 0U);
    inside.inputMode() = static_cast<InputMode>(9);
    EXPECT_EQ(camera->getCameraFPS(), 120.0F);
}

TEST_F(Grab, ImuPacketsOfTheFrameReachRecorderAndSenderOnce) {
    for (const uint64_t time : {5U, 5U, 7U, 9U, 9U}) {
        IMUPacket packet;
        packet.imu_timestamp = time;
        factory->grabber.mcu.batch.push_back(packet);
    }
    ASSERT_EQ(openLive(), SUCCESS);
    ASSERT_EQ(camera->grab(), SUCCESS);
    EXPECT_TRUE(calls.has("getIMUPacketBatch 0 1000000000"));
    EXPECT_FALSE(calls.has("handleRLXFrameRecording")) << "nobody wants the packets";
    ASSERT_EQ(camera->enableRecording({}), SUCCESS);
    ASSERT_EQ(camera->enableStreaming({}), SUCCESS);
    calls.clear();

    ASSERT_EQ(camera->grab(), SUCCESS);

    EXPECT_TRUE(calls.has("getIMUPacketBatch 1000000000 1033333333"));
    for (const char* call : {"recorder writeCurrentIMU 5", "recorder writeCurrentIMU 7", "recorder writeCurrentIMU 9",
                             "ingestIMU 5", "ingestIMU 7", "ingestIMU 9", "handleRLXFrameRecording"}) {
        EXPECT_EQ(calls.count(call), 1) << call;
    }
    EXPECT_LT(calls.at("ingestIMU 9"), calls.at("handleRLXFrameRecording"));
    factory->streamOutput.imu = false;
    calls.clear();
    ASSERT_EQ(camera->grab(), SUCCESS);
    EXPECT_FALSE(calls.has("ingestIMU 5"));
}

TEST_F(Grab, StreamInputIsRecordedByItsOwnRecorder) {
    factory->streamInput.packets.resize(1);
    factory->streamInput.packets[0].imu_timestamp = 3;
    rlxrw::convertMetadataFromMCUData(factory->streamInput.metadata, {.orientation = {0, 0, 0, 1}});
    ASSERT_EQ(openStream(), SUCCESS);
    ASSERT_EQ(camera->enableRecording({}), SUCCESS);

    ASSERT_EQ(camera->grab(), SUCCESS);

    EXPECT_TRUE(calls.has("takeImuPacketsBefore 5040000000"));
    EXPECT_TRUE(calls.has("streamRecorder writeCurrentIMU 3"));
    EXPECT_FALSE(calls.has("recorder writeCurrentIMU 3"));
}

class LiveIntake : public CameraTest {
protected:
    void openSmall() {
        factory->grabber.width = 960;
        factory->grabber.height = 600;
        factory->grabber.pixels.assign(std::size_t{960} * 600 * 2, 0xAB);
        factory->grabber.packet.imu_timestamp = 11;
        factory->grabber.packet.orientation = {0.0F, 0.0F, 0.0F, 1.0F};
        parameters.requested_resolution = HD600;
        ASSERT_EQ(openLive(), SUCCESS);
        calls.clear();
    }
    [[nodiscard]] std::array<float, 7> sentPose() const {
        const auto [q, t] = rlxrw::poseOf(factory->streamOutput.sent.back().metadata);
        return {q[3], q[0], q[1], q[2], t[0], t[1], t[2]};
    }
};

TEST_F(LiveIntake, FrameIsCopiedInsideTheCriticalSection) {
    openSmall();

    ASSERT_EQ(camera->grab(), SUCCESS);

    EXPECT_LT(calls.at("enter"), calls.at("getPixels"));
    EXPECT_LT(calls.at("getPixels"), calls.at("afterGrab"));
    EXPECT_LT(calls.at("afterGrab"), calls.at("exit"));
    const auto* pixels = inside.image().getPtr<unsigned char>(CPU);
    EXPECT_EQ(std::memcmp(pixels, factory->grabber.pixels.data(), factory->grabber.pixels.size()), 0);
    EXPECT_EQ(inside.image().timestamp, 1'000'000'000U);
    EXPECT_EQ(inside.currentImu().imu_timestamp, 11U);
}

TEST_F(LiveIntake, FrameWithoutPixelsOrPacketKeepsWhatWasThere) {
    openSmall();
    ASSERT_EQ(camera->grab(), SUCCESS);
    factory->grabber.pixelsAreNull = true;
    factory->grabber.packetIsNull = true;
    const Timestamp before = camera->getTimestamp(IMAGE);

    EXPECT_EQ(camera->grab(), SUCCESS);

    EXPECT_EQ(*inside.image().getPtr<unsigned char>(CPU), 0xAB);
    EXPECT_EQ(inside.currentImu().imu_timestamp, 11U);
    EXPECT_GT(camera->getTimestamp(IMAGE), before);
}

TEST_F(LiveIntake, RecorderGetsItsCopyWhenItHasABuffer) {
    openSmall();
    ASSERT_EQ(camera->enableRecording({}), SUCCESS);
    ASSERT_EQ(camera->grab(), SUCCESS) << "without a buffer nothing is copied";
    std::vector<unsigned char> buffer(std::size_t{960} * 600 * 2);
    inside.recordingFrameBuffer() = buffer.data();

    ASSERT_EQ(camera->grab(), SUCCESS);

    EXPECT_EQ(buffer, factory->grabber.pixels);
}

TEST_F(LiveIntake, SenderGetsTheFrameWithThePoseOfTheImu) {
    struct Case {
        std::array<float, 9> rotation;
        std::array<float, 4> quaternion;
    };
    for (const Case& c : std::vector<Case>{{{1, 0, 0, 0, 1, 0, 0, 0, 1}, {1, 0, 0, 0}},
                                           {{1, 0, 0, 0, -1, 0, 0, 0, -1}, {0, 1, 0, 0}},
                                           {{-1, 0, 0, 0, 1, 0, 0, 0, -1}, {0, 0, 1, 0}},
                                           {{-1, 0, 0, 0, -1, 0, 0, 0, 1}, {0, 0, 0, 1}}}) {
        for (std::size_t i = 0; i < 9; ++i) {
            factory->grabber.mcu.imuToCamera(i / 3, i % 3) = c.rotation[i];
        }
        factory->grabber.mcu.imuToCamera(0, 3) = 12.5F;
        openSmall();
        ASSERT_EQ(camera->enableStreaming({}), SUCCESS);

        ASSERT_EQ(camera->grab(), SUCCESS);

        EXPECT_EQ(sentPose(), (std::array<float, 7>{c.quaternion[0], c.quaternion[1], c.quaternion[2], c.quaternion[3],
                                                    12.5F, 0.0F, 0.0F}));
        EXPECT_TRUE(calls.has(fmt::format("send {} 1152000", camera->getTimestamp(IMAGE))));
    }
}

TEST_F(LiveIntake, BusySenderLosesTheFrameAndIsTold) {
    openSmall();
    ASSERT_EQ(camera->enableStreaming({}), SUCCESS);
    factory->streamOutput.busy = true;

    ASSERT_EQ(camera->grab(), SUCCESS);

    EXPECT_EQ(calls.count("skipped"), 1);
    EXPECT_FALSE(calls.has(fmt::format("send {} 1152000", camera->getTimestamp(IMAGE))));
}

TEST_F(LiveIntake, CameraWithoutImuSendsZeroMetadata) {
    factory->grabber.hasMcu = false;
    openSmall();
    ASSERT_EQ(camera->enableStreaming({}), SUCCESS);

    ASSERT_EQ(camera->grab(), SUCCESS);

    EXPECT_EQ(sentPose(), (std::array<float, 7>{}));
    EXPECT_EQ(inside.currentImu(), IMUPacket{});
}

class StreamIntake : public CameraTest {
protected:
    void setOrientation(std::array<float, 4> wxyz, unsigned char state) {
        IMUPacket sample;
        sample.orientation = {wxyz[1], wxyz[2], wxyz[3], wxyz[0]};
        sample.sample_state = state;
        rlxrw::convertMetadataFromMCUData(factory->streamInput.metadata, sample);
    }
};

TEST_F(StreamIntake, SenderIsWaitedForBeforeTheImageIsOverwritten) {
    setOrientation({1, 0, 0, 0}, 0);
    ASSERT_EQ(openStream(), SUCCESS);
    ASSERT_EQ(camera->enableStreaming({}), SUCCESS);
    calls.clear();

    ASSERT_EQ(camera->grab(), SUCCESS);

    EXPECT_LT(calls.at("waitForSender"), calls.at("readStreamData"));
    EXPECT_TRUE(calls.has("send 5040000000 4608000"));
    EXPECT_EQ(std::memcmp(factory->streamOutput.sent.back().metadata.bytes, factory->streamInput.metadata.bytes, 256),
              0);
}

TEST_F(StreamIntake, SampleTakesTheFramesTimeUpToStateFour) {
    for (const auto& [state, framesTime] :
         std::vector<std::pair<unsigned char, bool>>{{0, true}, {4, true}, {5, false}}) {
        setOrientation({1, 0, 0, 0}, state);
        ASSERT_EQ(openStream(), SUCCESS);
        ASSERT_EQ(camera->grab(), SUCCESS);
        EXPECT_EQ(inside.currentImu().imu_timestamp == camera->getTimestamp(IMAGE), framesTime) << int{state};
    }
}

TEST_F(StreamIntake, FrameWithoutOrientationIsNotNew) {
    ASSERT_EQ(openStream(), SUCCESS);
    factory->streamInput.frames = {true};
    EXPECT_EQ(inside.nextImage(), NO_FRAME);
    EXPECT_NE(camera->getTimestamp(IMAGE), 0U) << "image and time were taken all the same";
    EXPECT_TRUE(everyMutexIsFree());
}

TEST_F(StreamIntake, FrameWithoutMetadataIsNewAndNotRelayed) {
    factory->streamInput.hasMetadata = false;
    ASSERT_EQ(openStream(), SUCCESS);
    ASSERT_EQ(camera->enableStreaming({}), SUCCESS);
    calls.clear();

    EXPECT_EQ(camera->grab(), SUCCESS);

    EXPECT_EQ(inside.currentImu(), IMUPacket{});
    EXPECT_FALSE(calls.has("send 5040000000 4608000"));
}

}  // namespace
}  // namespace oru
