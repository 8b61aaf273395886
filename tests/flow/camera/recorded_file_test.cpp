// Recordings by the public face alone: what is told of them, what is read, and what is done to them.

#include <gtest/gtest.h>

#include <filesystem>

#include "doubles/TemporaryDirectory.hpp"
#include "oru/CameraOne.hpp"
#include "oru/RecordedFile.hpp"
#include "oru/VideoFile.hpp"

namespace oru {
namespace {

class Recorded : public ::testing::Test {
protected:
    void SetUp() override {
        InitParametersOne parameters;
        parameters.settings_path = folder.prefix().c_str();
        parameters.requested_resolution = HD600;
        CameraOne camera;
        ASSERT_EQ(camera.open(parameters), SUCCESS);
        serial = camera.getCameraInformation().serial_number;
        ASSERT_EQ(camera.enableRecording({path.c_str(), RLX_RAW, 0, 0, true}), SUCCESS);
        for (int frame = 0; frame < 12; ++frame) {
            ASSERT_EQ(camera.grab(), SUCCESS);
        }
        camera.disableRecording();
        frames = static_cast<int>(camera.getRecordingStatus().frames_written);
        ASSERT_GT(frames, 8);
    }

    doubles::TemporaryDirectory folder;
    std::string path = folder.path("a.rlx2");
    int serial = 0;
    int frames = 0;  // a busy machine may leave some out
};

TEST_F(Recorded, TellsFactsFramesAndSamplesByNumberAndByTime) {
    RecordedFile file;
    ASSERT_EQ(file.open(path), SUCCESS);
    EXPECT_EQ(file.facts().serial_number, serial);
    EXPECT_EQ(file.facts().size, (Resolution{960, 600}));
    EXPECT_TRUE(file.facts().has_imu);
    EXPECT_FALSE(file.facts().calibration_text.empty());
    ASSERT_EQ(file.frameCount(), frames);
    EXPECT_EQ(file.frameAt(file.frameTime(5)), 5);
    EXPECT_EQ(file.frameAt(file.frameTime(5) + 1), 6);
    EXPECT_EQ(file.frameTime(frames), 0U);

    Mat image;
    file.setPosition(7);
    ASSERT_EQ(file.readFrame(image), SUCCESS);
    EXPECT_EQ(image.timestamp, file.frameTime(7));
    EXPECT_EQ(file.position(), 8);

    const std::vector<RecordedSample> samples = file.samplesBetween(file.frameTime(2), file.frameTime(7));
    ASSERT_GT(samples.size(), file.samplesOf(7).size());
    for (std::size_t i = 1; i < samples.size(); ++i) {
        EXPECT_GT(samples[i].timestamp, samples[i - 1].timestamp);
    }
    EXPECT_GE(samples.front().timestamp, file.frameTime(2));
    EXPECT_LE(samples.back().timestamp, file.frameTime(7));
}

TEST_F(Recorded, CopiesFramesWithTheirSamplesAndRefusesWhatDoesNotFit) {
    RecordedFile source;
    ASSERT_EQ(source.open(path), SUCCESS);
    RecordedFileWriter writer;
    Mat image;
    EXPECT_EQ(writer.write(image, source), INVALID_CALL);
    ASSERT_EQ(writer.create(folder.path("b.rlx2"), source, RLX_LOSSLESS), SUCCESS);
    EXPECT_EQ(writer.write(image, source), INVALID_PARAMETER);
    for (ERROR_CODE code = source.readFrame(image); code != END_OF_INPUT; code = source.readFrame(image)) {
        ASSERT_TRUE(code == SUCCESS || code == CAMERA_NOT_READY);
        ASSERT_TRUE(code != SUCCESS || writer.write(image, source) == SUCCESS);
    }
    writer.close();

    RecordedFile copy;
    ASSERT_EQ(copy.open(folder.path("b.rlx2")), SUCCESS);
    ASSERT_EQ(copy.frameCount(), frames);
    EXPECT_EQ(copy.frameTime(4), source.frameTime(4));
    EXPECT_EQ(copy.samplesOf(4).size(), source.samplesOf(4).size());
    EXPECT_EQ(copy.facts().serial_number, serial);

    VideoFileWriter video;
    EXPECT_EQ(video.write(image), INVALID_CALL);
    EXPECT_EQ(video.open(folder.path("c.mp4"), {{960, 600}, 30.0F, RLX_RAW, 0}), INVALID_PARAMETER);
    EXPECT_FALSE(video.error().empty());
}

TEST_F(Recorded, ThatIsCutOffPlaysIsToldRepairedAndLeftAloneWhenStopped) {
    const std::uintmax_t size = std::filesystem::file_size(path) * 3 / 4;
    std::filesystem::resize_file(path, size);

    RecordedFile file;
    Mat image;
    EXPECT_EQ(file.open(path), SUCCESS);
    EXPECT_EQ(file.condition(), RECORDING_CONDITION::CUT_OFF);
    EXPECT_TRUE(isRepairable(file.condition()));
    EXPECT_EQ(file.facts().serial_number, serial);
    const int left = file.frameCount();
    EXPECT_GT(left, 0);
    EXPECT_LT(left, frames);
    EXPECT_EQ(file.frameAt(file.frameTime(left - 1)), left - 1);
    EXPECT_FALSE(file.samplesOf(left - 1).empty());
    EXPECT_EQ(file.readFrame(image), SUCCESS);
    EXPECT_EQ(std::filesystem::file_size(path), size) << "reading writes nothing";
    file.close();

    const auto stop = [](uint64_t, uint64_t) { return false; };
    EXPECT_NE(RecordedFile::repair(path, "", stop).result, REPAIR_DONE);
    EXPECT_EQ(std::filesystem::file_size(path), size);
    EXPECT_EQ(RecordedFile::repair(path, path).result, REPAIR_NOT_WRITABLE);
    const RecordingRepair repair = RecordedFile::repair(path, "");
    EXPECT_EQ(repair.result, REPAIR_DONE);
    EXPECT_EQ(repair.frames_recovered, static_cast<uint64_t>(left));
    const RecordingCheck check = RecordedFile::verify(path);
    EXPECT_EQ(check.condition, RECORDING_CONDITION::INTACT);
    EXPECT_EQ(check.frames, repair.frames_recovered);
}

}  // namespace
}  // namespace oru
