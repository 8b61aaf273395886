#include <gtest/gtest.h>

#include "backends/rlx/camera_rig.hpp"

namespace oru::rlx_test {

namespace {

constexpr uint64_t kSecond = 1'000'000'000;

/// Writes one RAW frame for each time.
void recordTimes(const std::string& path, const Scene& scene, const std::vector<Timestamp>& times) {
    KeptCalibration calibration;
    const auto recorder = makeRlxVideo(calibration);
    ASSERT_EQ(recorder->create(path.c_str(), scene.header()), 0);
    for (std::size_t i = 0; i < times.size(); ++i) {
        const std::vector<unsigned char> picture = scene.picture(i);
        const std::vector<IMUPacket> packets = scene.packets(i);
        rlxrw::RlxFrame frame;
        frame.pixels = picture.data();
        frame.size = picture.size();
        frame.time = times[i];
        frame.packets = packets.data();
        frame.packet_count = packets.size();
        ASSERT_EQ(recorder->writeFrame(frame), 0);
    }
    recorder->close();
}

FrameStatus grabSoon(CameraRig& camera) {
    FrameStatus status = NO_FRAME;
    for (int i = 0; i < 50 && status == NO_FRAME; ++i) {
        status = camera.grabFile();
    }
    return status;
}

}  // namespace

TEST(Playback, RealTimeKeepsAbsoluteDeadlines) {
    const Folder folder;
    const Scene scene;
    std::vector<Timestamp> times;
    for (uint64_t i = 0; i < 200; ++i) {
        times.push_back(5 * kSecond + i * 33'333'333 + (i % 3) * 1'000'000);
    }
    recordTimes(folder.path("a.rlx2"), scene, times);
    SteppedClock clock;
    CameraRig camera(scene, clock);
    ASSERT_EQ(camera.openFile(folder.path("a.rlx2")), 0);
    const uint64_t start = clock.now;

    for (std::size_t i = 0; i < times.size(); ++i) {
        ASSERT_EQ(grabSoon(camera), NEW_FRAME);
        EXPECT_EQ(camera.current_timestamp, times[i]);
        EXPECT_EQ(clock.now - start, times[i] - times[0]) << i;
        clock.now += 5'000'000;  // the application's own work
    }
    EXPECT_EQ(camera.reader->counters().late, 0U);
}

TEST(Playback, RealTimeSkipsOvertakenFramesAndJoinsTheirPackets) {
    const Folder folder;
    const Scene scene;
    std::vector<Timestamp> times;
    for (uint64_t i = 0; i < 20; ++i) {
        times.push_back(5 * kSecond + i * 100'000'000);
    }
    recordTimes(folder.path("a.rlx2"), scene, times);
    SteppedClock clock;
    CameraRig camera(scene, clock);
    ASSERT_EQ(camera.openFile(folder.path("a.rlx2")), 0);
    ASSERT_EQ(grabSoon(camera), NEW_FRAME);

    clock.now += 350'000'000;
    ASSERT_EQ(grabSoon(camera), NEW_FRAME);

    EXPECT_EQ(camera.current_timestamp, times[3]);
    EXPECT_EQ(camera.reader->getFrameIMUPackets().size(), 1U + 2U + 3U);
    ASSERT_EQ(grabSoon(camera), NEW_FRAME);
    EXPECT_EQ(camera.current_timestamp, times[4]);
    clock.now += 100 * kSecond;
    ASSERT_EQ(grabSoon(camera), NEW_FRAME);
    EXPECT_EQ(camera.current_timestamp, times[19]) << "the last frame is shown however late";
    EXPECT_EQ(grabSoon(camera), INPUT_ENDED);
    const FrameCounters counters = camera.reader->counters();
    EXPECT_EQ(counters.late, 2U + 14U);
    EXPECT_EQ(counters.delivered, 4U);
    EXPECT_EQ(counters.produced, 20U);
}

TEST(Playback, GapsAndStepsBackStartTheScheduleAnew) {
    const Folder folder;
    const Scene scene;
    const std::vector<Timestamp> times{5 * kSecond, 5 * kSecond + 100'000'000, 65 * kSecond, 65 * kSecond + 100'000'000,
                                       2 * kSecond, 2 * kSecond + 100'000'000};
    const uint64_t due[] = {0, 100'000'000, 1'100'000'000, 1'200'000'000, 1'200'000'000, 1'300'000'000};
    recordTimes(folder.path("a.rlx2"), scene, times);
    SteppedClock clock;
    CameraRig camera(scene, clock);
    ASSERT_EQ(camera.openFile(folder.path("a.rlx2")), 0);
    const uint64_t start = clock.now;

    for (std::size_t i = 0; i < times.size(); ++i) {
        ASSERT_EQ(grabSoon(camera), NEW_FRAME);
        EXPECT_EQ(camera.current_timestamp, times[i]);
        EXPECT_EQ(clock.now - start, due[i]) << i;
    }
}

TEST(Playback, NotRealTimeGivesEveryFrameOnceWithoutWaiting) {
    const Folder folder;
    const Scene scene;
    record(folder.path("a.rlx2"), scene, 50);
    SteppedClock clock;
    CameraRig camera(scene, clock);
    camera.init.rlx_real_time = false;
    ASSERT_EQ(camera.openFile(folder.path("a.rlx2")), 0);
    const uint64_t start = clock.now;

    for (uint64_t number = 0; number < 50; ++number) {
        clock.now += kSecond;
        ASSERT_EQ(grabSoon(camera), NEW_FRAME);
        EXPECT_EQ(camera.current_timestamp, scene.time(number));
    }

    EXPECT_EQ(clock.now - start, 50 * kSecond);
    EXPECT_EQ(grabSoon(camera), INPUT_ENDED);
}

TEST(Playback, PositionsAreExactAndReviveAnEndedInput) {
    const Folder folder;
    const Scene scene;
    record(folder.path("a.rlx2"), scene, 30);
    SteppedClock clock;
    CameraRig camera(scene, clock);
    PlaybackRecorder& module = *camera.module;
    EXPECT_EQ(module.setRLXPosition(camera.context(), 0), INVALID_CALL) << "no file is open";
    EXPECT_EQ(camera.grabFile(), SOURCE_UNAVAILABLE);
    ASSERT_EQ(camera.openFile(folder.path("a.rlx2")), 0);
    EXPECT_EQ(module.getRLXNumberOfFrames(camera.context()), 30);
    const struct {
        Timestamp time;
        int frame;
    } cases[] = {{0, 0}, {scene.time(7), 7}, {scene.time(7) + 1, 8}, {scene.time(29), 29}};

    for (const auto& sample : cases) {
        EXPECT_EQ(module.setRLXPositionAt(camera.context(), sample.time), SUCCESS);
        EXPECT_EQ(module.getRLXPosition(camera.context()), sample.frame);
        ASSERT_EQ(grabSoon(camera), NEW_FRAME);
        EXPECT_EQ(camera.current_timestamp, scene.time(static_cast<uint64_t>(sample.frame)));
    }
    EXPECT_EQ(grabSoon(camera), INPUT_ENDED);
    EXPECT_EQ(module.setRLXPositionAt(camera.context(), scene.time(29) + 1), INVALID_PARAMETER);
    EXPECT_EQ(module.setRLXPosition(camera.context(), 30), INVALID_PARAMETER);
    EXPECT_EQ(module.setRLXPosition(camera.context(), -1), INVALID_PARAMETER);
    EXPECT_EQ(module.setRLXPosition(camera.context(), 28), SUCCESS);
    EXPECT_EQ(grabSoon(camera), NEW_FRAME);
}

TEST(Playback, DamagedFrameIsLeftOutAndTheImageStaysUntouched) {
    const Folder folder;
    const Scene scene;
    const std::string path = folder.path("a.rlx2");
    record(path, scene, 1);
    std::vector<unsigned char> bytes = readBytes(path);
    const std::vector<unsigned char> picture = scene.picture(0);
    *std::search(bytes.begin(), bytes.end(), picture.begin(), picture.end()) ^= 1;
    writeBytes(path, bytes);
    SteppedClock clock;
    CameraRig camera(scene, clock);
    ASSERT_EQ(camera.openFile(path), 0);
    const std::vector<unsigned char> before = camera.picture();

    EXPECT_EQ(grabSoon(camera), INPUT_ENDED);

    EXPECT_EQ(camera.picture(), before);
    EXPECT_EQ(camera.reader->counters().damaged, 1U);
}

TEST(Playback, FileIsHandedToASenderWithTimeAndMetadata) {
    const Folder folder;
    const Scene scene;
    record(folder.path("a.rlx2"), scene, 3);
    SteppedClock clock;
    SenderLog sender;
    CameraRig camera(scene, clock);
    camera.sender = &sender;
    camera.streaming = true;
    ASSERT_EQ(camera.openFile(folder.path("a.rlx2")), 0);

    ASSERT_EQ(grabSoon(camera), NEW_FRAME);
    sender.busy = true;
    ASSERT_EQ(grabSoon(camera), NEW_FRAME);
    sender.busy = false;
    ASSERT_EQ(grabSoon(camera), NEW_FRAME);

    ASSERT_EQ(sender.times.size(), 2U);
    EXPECT_EQ(sender.pictures[1], scene.picture(2));
    EXPECT_EQ(sender.times[1], scene.time(2));
    const auto metadata = scene.metadata(2);
    EXPECT_TRUE(std::equal(std::begin(metadata.bytes), std::end(metadata.bytes), sender.last_metadata.bytes));
    EXPECT_EQ(sender.skipped, 1);
    EXPECT_GE(sender.waits, 3) << "the sender may still read the image";
    camera.streaming = false;
}

}  // namespace oru::rlx_test
