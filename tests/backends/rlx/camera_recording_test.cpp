#include <gtest/gtest.h>

#include <unistd.h>

#include <condition_variable>
#include <fstream>
#include <mutex>

#include "backends/rlx/CameraRig.hpp"
#include "backends/rlx/file/repair.hpp"
#include "collaborators/frame_metadata.hpp"
#include "doubles/ChildProcess.hpp"

namespace oru::rlx_test {

namespace {

/// A recorder whose writing the test holds up and lets fail.
class GatedRecorder final : public rlxrw::RLXVideo {
public:
    int open(const char* /*path*/) override { return 1; }
    void close() override { closed = true; }
    int repairFile(const char* /*in*/, const char* /*out*/, bool /*a*/, bool /*b*/) override { return 1; }
    void setPosition(int /*frame*/) override {}
    int getRLXVersion() override { return 0; }
    rlxrw::IRLXWriter* v1() override { return nullptr; }
    const rlxrw::RlxHeaderV2* v2() override { return nullptr; }
    MODEL getCameraModel() override { return MODEL_UNKNOWN; }
    int getCameraFwVersion() override { return 0; }
    int getIMUDataVersion() override { return 0; }
    bool hasIMUData() override { return false; }
    int getSharpenIntVal() override { return 0; }
    ImuCalibration getImuCalib() override { return {}; }
    RLX_COMPRESSION_MODE getCompressionMode() override { return RLX_RAW; }
    bool getDecompressionPlatform() override { return false; }
    bool getCurrentIMU(IMUPacket& /*packet*/) override { return false; }
    bool getCurrentMetadata(rlxrw::rlxSampleMetadata& /*metadata*/) override { return false; }
    const Matrix4f* getIMUCamTransform() override { return nullptr; }
    std::vector<IMUPacket> getFrameIMUPackets() override { return {}; }
    void writeCurrentIMU(IMUPacket packet) override { waiting.push_back(packet); }
    void takeWrittenPackets(std::vector<IMUPacket>& packets) override {
        packets.insert(packets.end(), waiting.begin(), waiting.end());
        waiting.clear();
    }
    FrameStatus readFrame(unsigned char* /*pixels*/, std::size_t /*size*/, Timestamp& /*time*/) override {
        return SOURCE_UNAVAILABLE;
    }
    int frameCount() override { return 0; }
    int position() override { return 0; }
    int create(const char* /*path*/, const rlxrw::RlxRecordingHeader& header) override {
        created = header;
        return 0;
    }
    int writeFrame(const rlxrw::RlxFrame& frame) override {
        std::unique_lock lock(mutex);
        ++entered;
        changed.notify_all();
        changed.wait(lock, [this] { return open_gate; });
        times.push_back(frame.time);
        lost_before.push_back(frame.lost_before);
        packets_seen += frame.packet_count;
        return result;
    }
    FrameCounters counters() const override { return {}; }

    void waitUntilEntered(int count) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return entered >= count; });
    }
    void openGate() {
        const std::lock_guard lock(mutex);
        open_gate = true;
        changed.notify_all();
    }

    std::mutex mutex;
    std::condition_variable changed;
    bool open_gate = false;
    int entered = 0;
    std::atomic<int> result{0};
    std::atomic<bool> closed{false};
    std::vector<Timestamp> times;
    std::vector<uint32_t> lost_before;
    std::size_t packets_seen = 0;
    std::vector<IMUPacket> waiting;
    rlxrw::RlxRecordingHeader created;
};

class EveryMode : public testing::TestWithParam<RLX_COMPRESSION_MODE> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Rlx, EveryMode, testing::ValuesIn(kModes), modeName);

TEST(CameraRecording, LiveFramesComeBackWithPacketsAndMetadata) {
    const TemporaryDirectory folder;
    const std::string path = folder.path("a.rlx2");
    ScriptedClock clock;
    CameraRig camera(Scene{}, clock);
    camera.calibration.offer(kSerialNumber, "offered");
    ASSERT_EQ(camera.startRecording(path), SUCCESS);
    for (uint64_t number = 0; number < 5; ++number) {
        camera.grabLive(number);
    }

    camera.module->disableRecording(camera.context());

    EXPECT_FALSE(camera.recording);
    EXPECT_EQ(camera.frame_buffer, nullptr);
    EXPECT_EQ(camera.status.frames_written, 5U);
    EXPECT_EQ(camera.status.frames_dropped, 0U);
    EXPECT_EQ(camera.status.last_result, SUCCESS);
    camera.calibration.offer(kSerialNumber, "");
    ASSERT_EQ(camera.openFile(path), 0);
    EXPECT_EQ(camera.calibration.text(kSerialNumber), "offered");
    for (uint64_t number = 0; number < 5; ++number) {
        ASSERT_EQ(camera.grabFile(), NEW_FRAME);
        EXPECT_EQ(camera.pixels(), camera.scene.image(number));
        EXPECT_EQ(camera.current_timestamp, camera.scene.time(number));
        EXPECT_EQ(camera.image.timestamp, camera.scene.time(number));
        EXPECT_EQ(camera.current_imu, camera.scene.imu(number));
        EXPECT_EQ(camera.reader->getFrameIMUPackets(), camera.scene.packets(number));
        rlxrw::rlxSampleMetadata expected{};
        rlxrw::rlxSampleMetadata metadata{};
        rlxrw::convertMetadataFromMCUData(expected, camera.scene.imu(number));
        ASSERT_TRUE(camera.reader->getCurrentMetadata(metadata));
        rlxrw::setPose(expected, Transform(camera.scene.header().imu_to_camera));
        EXPECT_TRUE(std::ranges::equal(metadata.bytes, expected.bytes));
    }
    EXPECT_EQ(camera.grabFile(), INPUT_ENDED);
    EXPECT_EQ(camera.grabFile(), INPUT_ENDED);
}

TEST(CameraRecording, FullPoolDropsAndCountsWithoutBlockingOrMoving) {
    ScriptedClock clock;
    auto owned = std::make_unique<GatedRecorder>();
    GatedRecorder& recorder = *owned;
    CameraRig camera(Scene{}, clock, std::move(owned));
    const TemporaryDirectory folder;
    ASSERT_EQ(camera.startRecording(folder.path("a.rlx2")), SUCCESS);
    const std::size_t packets = [&] {
        std::size_t count = 0;
        for (uint64_t number = 0; number < 60; ++number) {
            camera.grabLive(number);
            count += camera.scene.packets(number).size();
        }
        return count;
    }();
    const RecordingStatus held = camera.module->getRecordingStatus(camera.context());
    EXPECT_EQ(held.frames_written, 0U);
    EXPECT_GT(held.frames_dropped, 30U);
    EXPECT_NE(camera.frame_buffer, nullptr);

    recorder.openGate();
    recorder.waitUntilEntered(static_cast<int>(60 - held.frames_dropped));
    camera.grabLive(60);
    camera.module->disableRecording(camera.context());

    EXPECT_EQ(camera.status.frames_written + camera.status.frames_dropped, 61U);
    EXPECT_EQ(recorder.times.size(), camera.status.frames_written);
    EXPECT_EQ(recorder.times.back(), camera.scene.time(60));
    EXPECT_EQ(recorder.lost_before.back(), held.frames_dropped);
    EXPECT_EQ(recorder.packets_seen, packets + camera.scene.packets(60).size()) << "packets of dropped frames are kept";
    EXPECT_TRUE(recorder.closed);
}

TEST(CameraRecording, SlowCoderIsNeverMoreThanAThirdOfASecondBehind) {
    ScriptedClock clock;
    auto owned = std::make_unique<GatedRecorder>();
    GatedRecorder& recorder = *owned;
    CameraRig camera(Scene{.fps = 30.0F}, clock, std::move(owned));
    const TemporaryDirectory folder;
    ASSERT_EQ(camera.startRecording(folder.path("a.rlx2")), SUCCESS);

    camera.grabLive(0);
    recorder.waitUntilEntered(1);
    for (uint64_t number = 1; number < 30; ++number) {
        clock.now += 33'000'000;
        camera.grabLive(number);
    }

    const RecordingStatus held = camera.module->getRecordingStatus(camera.context());
    EXPECT_GE(held.frames_dropped, 25U) << "one frame takes a second: no more than a few may wait";
    recorder.openGate();
}

TEST(CameraRecording, FailureEndsTheRecordingAndNotTheCamera) {
    ScriptedClock clock;
    auto owned = std::make_unique<GatedRecorder>();
    GatedRecorder& recorder = *owned;
    recorder.open_gate = true;
    recorder.result = 1;
    CameraRig camera(Scene{}, clock, std::move(owned));
    const TemporaryDirectory folder;
    ASSERT_EQ(camera.startRecording(folder.path("a.rlx2")), SUCCESS);

    camera.grabLive(0);
    recorder.waitUntilEntered(1);
    for (uint64_t number = 1; camera.recording && number < 1000; ++number) {
        camera.grabLive(number);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

    EXPECT_FALSE(camera.recording);
    EXPECT_TRUE(recorder.closed);
    EXPECT_EQ(camera.status.last_result, FAILURE);
    EXPECT_FALSE(camera.status.recording);
    EXPECT_EQ(camera.frame_buffer, nullptr);
    camera.grabLive(2000);
}

TEST(CameraRecording, StartRefusesAnExistingFileUnlessAsked) {
    const TemporaryDirectory folder;
    const std::string path = folder.path("a.rlx2");
    writeBytes(path, {'x'});
    ScriptedClock clock;
    CameraRig camera(Scene{}, clock);

    EXPECT_EQ(camera.startRecording(path), INVALID_PARAMETER);
    EXPECT_EQ(readBytes(path).size(), 1U);
    EXPECT_FALSE(camera.recording);
    EXPECT_EQ(camera.startRecording(folder.path("missing/b.rlx2")), INVALID_PARAMETER);
    camera.scene.mode = RLX_MODE_5;
    EXPECT_EQ(camera.startRecording(folder.path("c.rlx2")), RLX_CODEC_UNAVAILABLE);
    camera.scene.mode = RLX_RAW;
    EXPECT_EQ(camera.startRecording(path, 0, true), SUCCESS);
    EXPECT_EQ(camera.startRecording(folder.path("d.rlx2")), INVALID_CALL);
    EXPECT_TRUE(camera.recording);
}

TEST(CameraRecording, PauseAndLowerRateLeaveFramesOut) {
    const TemporaryDirectory folder;
    ScriptedClock clock;
    CameraRig camera(Scene{}, clock);
    ASSERT_EQ(camera.startRecording(folder.path("a.rlx2"), 10), SUCCESS);
    for (uint64_t number = 0; number < 90; ++number) {
        camera.module->pauseRecording(camera.context(), number >= 30 && number < 60);
        camera.grabLive(number);
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    camera.module->disableRecording(camera.context());

    EXPECT_NEAR(static_cast<double>(camera.status.frames_written + camera.status.frames_dropped), 20.0, 1.0);
    ASSERT_EQ(camera.reader->open(folder.path("a.rlx2").c_str()), rlxrw::RLX_OPENED);
    EXPECT_EQ(camera.reader->v2()->fps, 10.0F);
}

TEST(CameraRecording, NameEndingChoosesTheVersion) {
    const TemporaryDirectory folder;
    ScriptedClock clock;
    for (const auto& [name, version] : {std::pair("a.rlx", 1), std::pair("b.rlx2", 2), std::pair("c", 2)}) {
        CameraRig camera(Scene{}, clock);
        ASSERT_EQ(camera.startRecording(folder.path(name)), SUCCESS);
        camera.grabLive(0);
        camera.module->disableRecording(camera.context());
        ASSERT_EQ(camera.openFile(folder.path(name)), 0);
        EXPECT_EQ(camera.reader->getRLXVersion(), version);
    }
}

TEST(CameraRecording, CalibrationFileInUseGoesIntoTheRecording) {
    const TemporaryDirectory folder;
    std::ofstream(folder.path("SN60123456.conf")) << "[LEFT_CAM_FHD1200]\nfx=1\n";
    ScriptedClock clock;
    CameraRig camera(Scene{}, clock);
    camera.init.settings_path = folder.path("");
    ASSERT_EQ(camera.startRecording(folder.path("a.rlx2")), SUCCESS);
    camera.grabLive(0);
    camera.module->disableRecording(camera.context());

    ASSERT_EQ(camera.openFile(folder.path("a.rlx2")), 0);

    EXPECT_EQ(camera.calibration.text(kSerialNumber), "[LEFT_CAM_FHD1200]\nfx=1\n");
}

TEST_P(EveryMode, CopyingAFileLosesNothing) {
    const TemporaryDirectory folder;
    const Scene scene{.mode = GetParam()};
    record(folder.path("a.rlx2"), scene, 100);
    ScriptedClock clock;
    CameraRig camera(scene, clock);
    camera.init.rlx_real_time = false;
    ASSERT_EQ(camera.openFile(folder.path("a.rlx2")), 0);
    EXPECT_NE(camera.startRecording(folder.path("a.rlx2"), 0, true), SUCCESS) << "onto itself";
    ASSERT_EQ(camera.startRecording(folder.path("b.rlx2")), SUCCESS);

    while (camera.grabFile() == NEW_FRAME) {
    }
    camera.module->disableRecording(camera.context());

    EXPECT_EQ(camera.status.frames_written, 100U);
    EXPECT_EQ(camera.status.frames_dropped, 0U);
    const Played played = play(folder.path("b.rlx2"), scene);
    EXPECT_EQ(played.times.size(), 100U);
    EXPECT_EQ(played.wrong_images + played.wrong_facts, 0U);
}

// A child records as fast as a camera would deliver until it is killed; what it had accepted half a second before
// its end must be there.
TEST_P(EveryMode, KilledRecorderLosesAtMostHalfASecond) {
    for (int round = 0; round < 3; ++round) {
        const TemporaryDirectory folder;
        const Scene scene{.fps = 60.0F, .mode = GetParam()};
        const std::string path = folder.path("a.rlx2");
        doubles::ChildProcess helper({RLX_RECORD_HELPER, "endless", path, std::to_string(GetParam())});
        if (!helper.hasStarted()) {
            GTEST_SKIP() << "cannot start " RLX_RECORD_HELPER;
        }
        helper.waitForOutput();
        ::usleep(static_cast<useconds_t>(600'000 + 130'000 * round));
        helper.kill();
        const std::size_t count = helper.rest().size();

        const std::vector<unsigned char> left = readBytes(path);
        const Played asLeft = play(path, scene);
        EXPECT_EQ(readBytes(path), left) << "playing only reads";

        const RecordingRepair report = rlx::repairRecording(path, "", rlx::ImageCheck::TAIL);

        EXPECT_EQ(asLeft.times.size(), report.frames_recovered);
        EXPECT_EQ(asLeft.wrong_images, 0U);
        ASSERT_EQ(report.result, REPAIR_DONE);
        EXPECT_GE(static_cast<double>(report.frames_recovered) + 30.0, static_cast<double>(count));
        const Played played = play(path, scene);
        EXPECT_EQ(played.times.size(), report.frames_recovered);
        EXPECT_EQ(played.wrong_images, 0U);
    }
}

}  // namespace oru::rlx_test
