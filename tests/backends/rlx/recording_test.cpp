#include <gtest/gtest.h>

#include <cstdio>

#include "backends/rlx/file/repair.hpp"
#include "backends/rlx/recording_fixture.hpp"
#include "doubles/ChildProcess.hpp"
#include "doubles/numbered_images.hpp"

namespace oru::rlx_test {

namespace {

class EveryMode : public testing::TestWithParam<RLX_COMPRESSION_MODE> {};

/// True when the command exits with 0; its output goes to the test's.
bool succeeds(const std::string& command) {
    return std::system((command + " 1>&2").c_str()) == 0;
}

bool isInstalled(const std::string& program) {
    return std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0;
}

std::string outputOf(const std::string& command) {
    std::string text;
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    char buffer[256];
    while (pipe != nullptr && std::fgets(buffer, sizeof buffer, pipe) != nullptr) {
        text += buffer;
    }
    return pipe != nullptr && ::pclose(pipe) == 0 ? text : text + "[failed]";
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Rlx, EveryMode, testing::ValuesIn(kModes), modeName);

TEST_P(EveryMode, PlaysBackEveryFrameWithItsFactsExactly) {
    for (const int version : {1, 2}) {
        const TemporaryDirectory folder;
        const Scene scene{.mode = GetParam(), .version = version};
        const std::string path = folder.path("a.rlx2");
        record(path, scene, 70);

        const Played played = play(path, scene);

        EXPECT_EQ(played.open_result, 0);
        EXPECT_EQ(played.times.size(), 70U);
        EXPECT_EQ(played.wrong_images, 0U);
        EXPECT_EQ(played.wrong_facts, 0U);
        EXPECT_EQ(played.counters.produced, 70U);
        EXPECT_EQ(played.counters.lost(), 0U);
        EXPECT_EQ(rlx::verifyRecording(path).condition, rlx::Condition::INTACT);
    }
}

TEST_P(EveryMode, SeeksExactlyForwardsAndBackwards) {
    OneFile own;
    const Scene scene{.fps = 10.0F, .mode = GetParam()};
    record(own.path, scene, 45);
    ASSERT_EQ(own.file->open(own.path.c_str()), rlxrw::RLX_OPENED);
    std::vector<unsigned char> image(std::size_t{scene.width} * scene.height * 2);

    for (const int frame : {3, 0, 44, 20, 21, 19, 9, 10, 11, 40, 0}) {
        own.file->setPosition(frame);
        EXPECT_EQ(own.file->position(), frame);
        ASSERT_EQ(own.file->readFrame(image.data(), image.size(), own.time), NEW_FRAME) << frame;
        EXPECT_EQ(own.time, scene.time(static_cast<uint64_t>(frame)));
        EXPECT_EQ(doubles::numberIn(image, scene.width), static_cast<uint64_t>(frame));
    }
}

TEST_P(EveryMode, OpensInOrdinaryPlayers) {
    if (!isInstalled("ffprobe") || !isInstalled("mkvinfo")) {
        GTEST_SKIP() << "ffprobe or mkvinfo is not installed";
    }
    const TemporaryDirectory folder;
    const Scene scene{.mode = GetParam()};
    const std::string path = folder.path("a.rlx2");
    record(path, scene, 35);

    const std::string probe = outputOf(
        "ffprobe -v error -count_frames -show_entries "
        "stream=nb_read_frames,width,height -of csv=p=0 " +
        path);
    const std::string info = outputOf("mkvinfo " + path);

    EXPECT_EQ(probe.substr(0, 8), "64,48,35") << probe;
    EXPECT_EQ(info.find("[failed]"), std::string::npos) << info;
    EXPECT_EQ(info.find("arning"), std::string::npos) << info;
    EXPECT_TRUE(succeeds("ffmpeg -v error -xerror -i " + path + " -f null - "));
}

TEST(Recording, HeaderFactsComeBackAndTheCalibrationIsOffered) {
    for (const int version : {1, 2}) {
        OneFile own;
        const Scene scene{.version = version};
        record(own.path, scene, 1);

        ASSERT_EQ(own.file->open(own.path.c_str()), rlxrw::RLX_OPENED);
        const auto& reader = own.file;

        EXPECT_EQ(reader->getRLXVersion(), version);
        EXPECT_EQ(reader->v1() != nullptr, version == 1);
        EXPECT_EQ(reader->v2() != nullptr, version == 2);
        EXPECT_EQ(version == 2 ? reader->v2()->serial_number : reader->v1()->getSerialNumber(), 60'123'456);
        EXPECT_EQ(version == 2 ? reader->v2()->fps : reader->v1()->getfps(), 30.0F);
        EXPECT_EQ(reader->getCameraModel(), MODEL_MONO_3UM);
        EXPECT_EQ(reader->getCameraFwVersion(), 1524);
        EXPECT_EQ(reader->getIMUDataVersion(), 778);
        EXPECT_EQ(reader->getSharpenIntVal(), 4);
        EXPECT_TRUE(reader->hasIMUData());
        ASSERT_NE(reader->getIMUCamTransform(), nullptr);
        EXPECT_EQ((*reader->getIMUCamTransform())(0, 3), 12.5F);
        EXPECT_EQ(own.calibration.text(kSerialNumber), scene.header().calibration_text);
    }
}

TEST(Recording, CalibrationThatNoReaderWouldTakeIsLeftOut) {
    constexpr std::size_t kFixedBytes = 308;
    const Scene scene;
    for (const std::size_t extra : {0, 1}) {
        OneFile own;
        rlxrw::RlxRecordingHeader header = scene.header();
        header.calibration_text.assign((std::size_t{1} << 20) - kFixedBytes + extra, 'c');
        ASSERT_EQ(own.file->create(own.path.c_str(), header), rlxrw::RLX_CREATED);
        ASSERT_EQ(writeSceneFrame(*own.file, scene, 0), rlxrw::RLX_WRITTEN);
        own.file->close();

        ASSERT_EQ(own.file->open(own.path.c_str()), rlxrw::RLX_OPENED) << "the recording is not lost";

        EXPECT_EQ(own.calibration.text(kSerialNumber), extra == 0 ? header.calibration_text : "");
    }
}

TEST(Recording, KeepsItsFileFromRepairAndOtherRecordersWhileReadersPlayIt) {
    const TemporaryDirectory folder;
    const Scene scene;
    const std::string path = folder.path("a.rlx2");
    CalibrationKeeper calibration;
    const auto recorder = makeRlxVideo(calibration);
    const auto other = makeRlxVideo(calibration);
    ASSERT_EQ(recorder->create(path.c_str(), scene.header()), rlxrw::RLX_CREATED);
    ASSERT_EQ(writeSceneFrame(*recorder, scene, 0), 0);
    const std::vector<unsigned char> before = readBytes(path);

    EXPECT_EQ(other->open(path.c_str()), rlxrw::RLX_OPENED);
    EXPECT_EQ(other->frameCount(), 1);
    EXPECT_EQ(other->repairFile(path.c_str(), "", true, false), REPAIR_UNREADABLE);
    EXPECT_EQ(other->create(path.c_str(), scene.header()), rlxrw::RLX_NOT_CREATABLE);
    EXPECT_EQ(other->createNew(path.c_str(), scene.header()), rlxrw::RLX_EXISTS);

    EXPECT_EQ(readBytes(path), before);
    recorder->close();
    EXPECT_EQ(play(path, scene).times.size(), 1U);
}

TEST(Recording, RefusesWhatItCannotCode) {
    const TemporaryDirectory folder;
    CalibrationKeeper calibration;
    const auto recorder = makeRlxVideo(calibration);
    const struct {
        Scene scene;
        std::string path;
        int result;
    } cases[] = {
        {{.mode = RLX_MODE_8}, folder.path("a.rlx2"), rlxrw::RLX_NO_ENCODER},
        {{.width = 63}, folder.path("b.rlx2"), rlxrw::RLX_NO_ENCODER},
        {{.height = 0}, folder.path("c.rlx2"), rlxrw::RLX_NO_ENCODER},
        {{.height = 47, .mode = RLX_H264}, folder.path("d.rlx2"), rlxrw::RLX_NO_ENCODER},
        {{}, folder.path("missing/e.rlx2"), rlxrw::RLX_NOT_CREATABLE},
        {{}, "/dev/null", rlxrw::RLX_NOT_CREATABLE},
    };
    for (const auto& sample : cases) {
        EXPECT_EQ(recorder->create(sample.path.c_str(), sample.scene.header()), sample.result) << sample.path;
    }
    EXPECT_FALSE(std::filesystem::exists(folder.path("a.rlx2")));
}

TEST(Recording, TimesThatStandStillOrGoBackAreKept) {
    OneFile own;
    const auto& file = own.file;
    const Scene scene;
    const std::vector<unsigned char> image = scene.image(0);
    const std::vector<Timestamp> times{5'000'000'000, 5'000'000'000, 4'000'000'000, 0, 200'000'000'000, ~Timestamp{0}};
    ASSERT_EQ(file->create(own.path.c_str(), scene.header()), rlxrw::RLX_CREATED);
    for (const Timestamp time : times) {
        ASSERT_EQ(writeImage(*file, image, time), rlxrw::RLX_WRITTEN);
    }
    file->close();

    ASSERT_EQ(file->open(own.path.c_str()), rlxrw::RLX_OPENED);

    for (std::size_t i = 0; i < times.size(); ++i) {
        std::vector<unsigned char> read(image.size());
        Timestamp time = 1;
        ASSERT_EQ(file->readFrame(read.data(), read.size(), time), NEW_FRAME);
        EXPECT_EQ(time, times[i]);
        EXPECT_EQ(file->frameTime(static_cast<int>(i)), times[i]);
    }
}

// The limit on the size of a file stands for a full disk; it needs a process of its own.
TEST_P(EveryMode, FullDiskLeavesAPlayableFile) {
    const TemporaryDirectory folder;
    const Scene scene{.fps = 60.0F, .mode = GetParam()};
    const std::string path = folder.path("a.rlx2");
    doubles::ChildProcess helper({RLX_RECORD_HELPER, "disk", path, std::to_string(GetParam()), "30000"});
    if (!helper.hasStarted()) {
        GTEST_SKIP() << "cannot start " RLX_RECORD_HELPER;
    }
    ASSERT_EQ(helper.exitStatus(), 0);

    const Played played = play(path, scene);

    EXPECT_EQ(played.open_result, 0);
    EXPECT_GT(played.times.size(), 0U);
    EXPECT_EQ(played.wrong_images, 0U);
    EXPECT_LE(std::filesystem::file_size(path), 30'000U);
}

}  // namespace oru::rlx_test
