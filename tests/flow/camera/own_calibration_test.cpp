// Which calibration a camera is rectified with: a recording with its own, a live camera with its stored file, and
// neither changes what the other one uses.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "backends/rlx/recording_fixture.hpp"
#include "compose/CameraCalibration.hpp"
#include "doubles/LogCapture.hpp"
#include "doubles/ScopedEnvironment.hpp"
#include "doubles/TemporaryDirectory.hpp"
#include "oru/CameraOne.hpp"
#include "oru/calibration.hpp"
#include "unit/calibration/calibration_texts.hpp"

namespace oru {
namespace {

using doubles::LogCapture;
using doubles::ScopedEnvironment;
using doubles::TemporaryDirectory;

constexpr int kSerial = 30'010'001;  // of a virtual camera, so that recording and live camera are the same one
constexpr const char* kName = "SN30010001.conf";
constexpr float kRecordedFocal = 1066.5F;
constexpr float kOtherFocal = 1222.25F;

std::string withFocal(std::string text, const std::string& focal) {
    for (std::size_t at = 0; (at = text.find("fx=1066.5", at)) != std::string::npos; at += focal.size()) {
        text.replace(at, std::string("fx=1066.5").size(), "fx=" + focal);
    }
    return text;
}
const std::string kOther = withFocal(kWholeCalibration, "1222.25");

/// Writes a recording of the camera that carries a calibration text.
void recordWith(const std::string& path, const std::string& text) {
    const rlx_test::Scene scene{.width = 960, .height = 600};
    rlx_test::CalibrationKeeper keeper;
    const auto file = makeRlxVideo(keeper);
    rlxrw::RlxRecordingHeader header = scene.header();
    header.serial_number = kSerial;
    header.flipped = false;
    header.calibration_text = text;
    ASSERT_EQ(file->create(path.c_str(), header), 0);
    for (uint64_t frame = 0; frame < 3; ++frame) {
        ASSERT_EQ(rlx_test::writeSceneFrame(*file, scene, frame), 0);
    }
    file->close();
}

class OwnCalibration : public testing::Test {
protected:
    OwnCalibration() {
        recordWith(files.path("own.rlx2"), kWholeCalibration);
        recordWith(files.path("none.rlx2"), "");
        (void)data.write("koru/settings/keep", "");
        (void)temporary.write("keep", "");
    }

    [[nodiscard]] InitParametersOne recording(const std::string& name, const std::string& settings = "") const {
        InitParametersOne parameters;
        parameters.input.setFromFile(files.path(name).c_str());
        parameters.settings_path = settings.c_str();
        return parameters;
    }
    [[nodiscard]] InitParametersOne live(const std::string& settings = "") const {
        InitParametersOne parameters;
        parameters.input.setFromSerialNumber(kSerial);
        parameters.requested_resolution = HD600;
        parameters.settings_path = settings.c_str();
        return parameters;
    }
    /// The focal length in use, 0 when it does not open.
    [[nodiscard]] static float focalOf(const InitParametersOne& parameters,
                                       CALIBRATION_CHOICE choice = CALIBRATION_DEFAULT) {
        CameraOne camera;
        EXPECT_EQ(camera.open(parameters, choice), SUCCESS);
        return camera.getCameraInformation().configuration.raw_calibration.fx;
    }
    [[nodiscard]] static std::vector<std::string> lines(LogCapture& log, LogLevel level, const std::string& part) {
        std::vector<std::string> found = log.texts(level);
        std::erase_if(found, [&](const std::string& text) { return text.find(part) == std::string::npos; });
        return found;
    }

    TemporaryDirectory files;
    TemporaryDirectory data;
    TemporaryDirectory temporary;
    ScopedEnvironment home{"XDG_DATA_HOME", data.path("").c_str()};
    ScopedEnvironment temporaryPlace{"TMPDIR", temporary.path("").c_str()};
    ScopedEnvironment noAddress{"KORU_CALIB_URL", nullptr};
    ScopedEnvironment noChoice{"KORU_CALIBRATION", nullptr};
};

TEST_F(OwnCalibration, RecordingIsRectifiedWithItsOwnThoughTodaysFileDiffers) {
    (void)data.write(std::string("koru/settings/") + kName, kOther);
    CameraOne camera;
    ASSERT_EQ(camera.open(recording("own.rlx2")), SUCCESS);

    EXPECT_EQ(camera.getCameraInformation().configuration.raw_calibration.fx, kRecordedFocal);
    EXPECT_TRUE(camera.getInitParameters().settings_path.empty()) << "none was given: opening again means the same";
    EXPECT_EQ(data.read(std::string("koru/settings/") + kName), kOther) << "what a live camera uses stays";
    ASSERT_EQ(camera.enableRecording({files.path("again.rlx2").c_str(), RLX_RAW, 0, 0, false}), SUCCESS);
    while (camera.grab() == SUCCESS) {
    }
    camera.disableRecording();
    (void)camera.close();
    EXPECT_EQ(temporary.list().size(), 1U) << "the private place is gone";
    EXPECT_EQ(focalOf(recording("again.rlx2")), kRecordedFocal) << "a copy of a recording carries its calibration on";
}

TEST_F(OwnCalibration, GivenPathWinsWithOneWarningThatNamesBothUnlessAnotherWasChosen) {
    const TemporaryDirectory given;
    (void)given.write(kName, kOther);
    const std::string withoutSlash = given.path("").substr(0, given.path("").size() - 1);
    {
        LogCapture log;
        EXPECT_EQ(focalOf(recording("own.rlx2", withoutSlash)), kOtherFocal);
        const auto warnings = lines(log, LogLevel::Warning, "is rectified with");
        ASSERT_EQ(warnings.size(), 1U);
        for (const char* part : {"own.rlx2", kName, "1066.5", "1222.25", "KORU_CALIBRATION"}) {
            EXPECT_NE(warnings[0].find(part), std::string::npos) << part << ": " << warnings[0];
        }
    }
    LogCapture log;
    EXPECT_EQ(focalOf(recording("own.rlx2", given.prefix()), CALIBRATION_OWN), kRecordedFocal);
    const ScopedEnvironment own("KORU_CALIBRATION", "own");
    EXPECT_EQ(focalOf(recording("own.rlx2", given.prefix())), kRecordedFocal);
    EXPECT_EQ(focalOf(recording("own.rlx2", given.prefix()), CALIBRATION_LOCAL), kOtherFocal);
    EXPECT_TRUE(lines(log, LogLevel::Warning, "is rectified with").empty()) << "it was asked for";
}

TEST_F(OwnCalibration, GivenPathWithoutAFileLeavesTheRecordingItsOwnAndIsNotWrittenTo) {
    const TemporaryDirectory given;
    EXPECT_EQ(focalOf(recording("own.rlx2", given.prefix())), kRecordedFocal);
    EXPECT_TRUE(given.list().empty());
}

TEST_F(OwnCalibration, RecordingWithoutOneTakesTheLocalFileAndSaysSoOnce) {
    (void)data.write(std::string("koru/settings/") + kName, kOther);
    LogCapture log;
    EXPECT_EQ(focalOf(recording("none.rlx2")), kOtherFocal);
    EXPECT_EQ(lines(log, LogLevel::Info, "carries no calibration").size(), 1U);
}

TEST_F(OwnCalibration, PlayingARecordingNeverChangesWhatTheLiveCameraUses) {
    LogCapture log;
    const float factory = focalOf(live(temporary.prefix()));
    ASSERT_GT(factory, 0.0F);
    EXPECT_EQ(focalOf(recording("own.rlx2")), kRecordedFocal);

    EXPECT_EQ(focalOf(live()), factory);

    EXPECT_NE(data.read(std::string("koru/settings/") + kName), kWholeCalibration);
    EXPECT_FALSE(factoryCalibration(kSerial).empty());
    EXPECT_NE(factoryCalibration(kSerial).number("CAM_svga", "fx"), kRecordedFocal);
    for (const std::string& line : lines(log, LogLevel::Info, "Stored the calibration")) {
        EXPECT_NE(line.find("the camera itself"), std::string::npos) << line;
    }
}

TEST_F(OwnCalibration, LiveCameraSaysOnceThatItsFileDiffersAndLouderWhenNobodyMeantIt) {
    CameraOne camera;
    (void)data.write(std::string("koru/settings/") + kName, kOther + "; this test's\n");
    {
        LogCapture log;
        for (int i = 0; i < 2; ++i) {
            ASSERT_EQ(camera.open(live()), SUCCESS);
        }
        EXPECT_EQ(lines(log, LogLevel::Warning, "disagrees with the factory calibration").size(), 1U);
    }
    std::string meant = kOther;
    meant.replace(meant.find("[MISC]\n"), 7, "[MISC]\nmade_by=koru-calibration\n");
    (void)data.write(std::string("koru/settings/") + kName, meant);
    LogCapture log;
    ASSERT_EQ(camera.open(live()), SUCCESS);
    EXPECT_TRUE(lines(log, LogLevel::Warning, "disagrees with the factory calibration").empty());
    EXPECT_EQ(lines(log, LogLevel::Info, "disagrees with the factory calibration").size(), 1U);
    EXPECT_EQ(camera.getCameraInformation().configuration.raw_calibration.fx, kOtherFocal);
}

TEST_F(OwnCalibration, NoPlaceToStoreIsNoReasonNotToOpen) {
    (void)data.write("file", "");
    for (const std::string& place : {data.path("file"), std::string()}) {
        const ScopedEnvironment nowhere("XDG_DATA_HOME", place.c_str());
        const ScopedEnvironment homeless("HOME", nullptr);
        LogCapture log;
        EXPECT_GT(focalOf(live()), 0.0F) << place;
        EXPECT_EQ(lines(log, LogLevel::Info, "Nothing can be stored").size(), 1U) << place;
    }
    EXPECT_GT(focalOf(live(data.path("file/"))), 0.0F) << "nor is a path that cannot be written";
    EXPECT_EQ(temporary.list().size(), 1U) << "nothing is left behind";
}

TEST_F(OwnCalibration, WrongTextIsNamedWithItsOriginAndTheLocalFileIsTaken) {
    recordWith(files.path("wrong.rlx2"), "[LEFT_CAM_FHD1200]\nfx = 743.5\n");
    (void)data.write(std::string("koru/settings/") + kName, kOther);
    LogCapture log;
    EXPECT_EQ(focalOf(recording("wrong.rlx2")), kOtherFocal);
    const auto warnings = lines(log, LogLevel::Warning, "is no calibration of camera");
    ASSERT_EQ(warnings.size(), 1U);
    EXPECT_NE(warnings[0].find("wrong.rlx2"), std::string::npos);
}

TEST_F(OwnCalibration, TwoCamerasOfOneSerialNumberKeepTheirTextsApart) {
    doubles::CalibrationKeeper process;
    CameraCalibration first(process);
    CameraCalibration second(process);
    const auto factory = CollaboratorFactory::processDefault();
    for (CameraCalibration* camera : {&first, &second}) {
        ASSERT_NE(camera->connect(factory), factory);
        (void)camera->prepare(recording("own.rlx2"), CALIBRATION_OWN);
    }
    first.offerFrom(CalibrationOrigin::RECORDING, "a.rlx2", kSerial, kWholeCalibration);
    second.offerFrom(CalibrationOrigin::STREAM, "192.0.2.7:30000", kSerial, kOther);
    process.offer(kSerial, "factory");

    EXPECT_EQ(first.text(kSerial), kWholeCalibration);
    EXPECT_EQ(second.text(kSerial), kOther);
    EXPECT_EQ(CameraCalibration(process).text(kSerial), "factory");
}

}  // namespace
}  // namespace oru
