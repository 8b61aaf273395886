// What CameraOne promises beyond the camera behind it.

#include <functional>

#include "doubles/camera_fixture.hpp"
#include "oru/CameraOne.hpp"

namespace oru {
namespace {

using doubles::CameraTest;

class Face : public CameraTest {
protected:
    CameraOne face;
};

TEST_F(Face, NoExceptionOfACollaboratorLeavesIt) {
    SensorsData data;
    std::vector<SensorsData> batch;
    Mat view;
    const std::vector<std::pair<const char*, std::function<ERROR_CODE()>>> cases{
        {"waitForNewFrame", [&] { return face.grab(); }},
        {"getView", [&] { return face.retrieveImage(view); }},
        {"getIMUPose", [&] { return face.getSensorsData(data, CURRENT); }},
        {"set 6", [&] { return face.setCameraSettings(GAIN, 1); }},
        {"setROI", [&] { return face.setCameraSettings(AEC_AGC_ROI, Rect{}); }},
        {"makeStreamOutput", [&] { return face.enableStreaming(); }},
        {"enableRecording", [&] { return face.enableRecording({}); }},
        {"resetMCU", [] { return CameraOne::reboot(); }},
        {"getGrabberList", [&] { return face.getDeviceList().empty() ? FAILURE : SUCCESS; }},
        {"disableRecording",
         [&] {
             (void)face.enableRecording({});
             face.disableRecording();
             return FAILURE;
         }},
        {"setUp", [&] { return face.open(parameters); }},
    };
    ASSERT_EQ(face.open(parameters), SUCCESS);
    ASSERT_EQ(face.grab(), SUCCESS);
    for (const auto& [call, operation] : cases) {
        SCOPED_TRACE(call);
        logged.clear();
        calls.failing = call;

        EXPECT_NO_THROW(EXPECT_EQ(operation(), FAILURE));

        calls.failing.clear();
        const std::vector<std::string> errors = logged.texts(LogLevel::Error);
        ASSERT_EQ(errors.size(), 1U);
        EXPECT_NE(errors.front().find(call), std::string::npos) << "what was thrown: " << errors.front();
    }
    ASSERT_EQ(face.open(parameters), SUCCESS);
    EXPECT_EQ(face.grab(), SUCCESS);
}

TEST_F(Face, EveryOperationSaysInOneWayThatTheCameraIsClosed) {
    SensorsData data;
    std::vector<SensorsData> batch;
    Mat view;
    Rect region;
    int value = 0;
    EXPECT_EQ(face.grab(), CAMERA_UNAVAILABLE);
    EXPECT_EQ(face.retrieveImage(view), CAMERA_UNAVAILABLE);
    EXPECT_TRUE(logged.texts(LogLevel::Error).empty());
    for (const auto& operation : std::vector<std::function<ERROR_CODE()>>{
             [&] { return face.getSensorsData(data, IMAGE); }, [&] { return face.getSensorsDataBatch(batch); },
             [&] { return face.getCameraSettings(GAIN, value); }, [&] { return face.setCameraSettings(GAIN, 1); },
             [&] { return face.getCameraSettings(AEC_AGC_ROI, region); },
             [&] { return face.getCameraSettingsRange(GAIN, value, value); }, [&] { return face.enableStreaming(); },
             [&] { return face.enableRecording({}); }, [&] { return face.setRLXPosition(1); },
             [&] { return face.isStreamingEnabled() ? SUCCESS : CAMERA_UNAVAILABLE; }}) {
        logged.clear();
        EXPECT_EQ(operation(), CAMERA_UNAVAILABLE);
        const std::vector<std::string> errors = logged.texts(LogLevel::Error);
        ASSERT_EQ(errors.size(), 1U);
        EXPECT_TRUE(errors.front().ends_with(": the camera is not open.")) << errors.front();
    }
}

TEST_F(Face, HasNoImageBeforeTheFirstGrab) {
    Mat view;
    ASSERT_EQ(face.open(parameters), SUCCESS);
    EXPECT_EQ(face.retrieveImage(view), CAMERA_NOT_READY);
    ASSERT_EQ(face.grab(), SUCCESS);
    EXPECT_EQ(face.retrieveImage(view), SUCCESS);

    ASSERT_EQ(face.open(parameters), SUCCESS);
    EXPECT_EQ(face.retrieveImage(view), CAMERA_NOT_READY) << "that frame was of the opening before";
}

TEST_F(Face, AStreamThatItsSenderEndedIsAtItsEndAndALostOneIsNotReady) {
    parameters.input.setFromStream("10.0.0.7");
    ASSERT_EQ(face.open(parameters), SUCCESS);
    factory->streamInput.thenFrame = false;
    factory->streamInput.hasMetadata = false;
    factory->streamInput.status.last_frame_age_ms = 5000.0;

    EXPECT_EQ(face.grab(), CAMERA_NOT_READY);
    EXPECT_EQ(face.getStreamInputStatus().last_frame_age_ms, 5000.0) << "since when";
    factory->streamInput.status.goodbye = true;
    EXPECT_EQ(face.grab(), END_OF_INPUT);
    factory->streamInput.status.goodbye = false;
    factory->streamInput.thenFrame = true;
    EXPECT_EQ(face.grab(), SUCCESS) << "another stream began";
}

TEST_F(Face, DrawsIntoMemoryOfTheApplicationOnlyWhatItFits) {
    ASSERT_EQ(face.open(parameters), SUCCESS);
    ASSERT_EQ(face.grab(), SUCCESS);
    const Resolution size = face.getCameraInformation().configuration.resolution;
    std::vector<unsigned char> pixels(size.area());
    Mat target = Mat::wrap(pixels.data(), size, U8_C1);

    EXPECT_EQ(face.retrieveImage(target, RECTIFIED), INVALID_PARAMETER);
    EXPECT_EQ(face.retrieveImage(target, RECTIFIED_GRAY, CPU, {size.width / 2, size.height / 2}), INVALID_PARAMETER);
    EXPECT_EQ(face.retrieveImage(target, RECTIFIED_GRAY), SUCCESS);

    EXPECT_EQ(target.getPtr<unsigned char>(CPU), pixels.data());
}

TEST_F(Face, RefusesIdsThatNoCameraHasInsteadOfTakingAny) {
    for (const char* id : {"99999999999", "99999999999999999999", "-2147483649", "0x1", "1 2", ""}) {
        parameters.input = InputType(KIND_GMSL_ID, id, "", true);
        EXPECT_EQ(face.open(parameters), INVALID_PARAMETER) << id;
    }
    parameters.input = InputType(KIND_GMSL_SERIAL, "4294967296", "", true);
    EXPECT_EQ(face.open(parameters), INVALID_PARAMETER);
    EXPECT_EQ(logged.texts(LogLevel::Error).size(), 7U);
    EXPECT_TRUE(std::none_of(calls.all().begin(), calls.all().end(),
                             [](const std::string& call) { return call.starts_with("setUp"); }));
    parameters.input.setFromCameraID(-1);
    EXPECT_EQ(face.open(parameters), SUCCESS);
}

TEST_F(Face, ShowsWhatRunsAndTellsEachAdjustmentOnce) {
    factory->grabber.fps = 15;
    parameters.requested_fps = 7;
    parameters.use_hdr = true;

    ASSERT_EQ(face.open(parameters), SUCCESS);

    EXPECT_EQ(face.getInitParameters().requested_fps, 15);
    EXPECT_EQ(face.getInitParameters().requested_resolution, HD1200);
    EXPECT_FALSE(face.getInitParameters().use_hdr);
    EXPECT_EQ(logged.count(LogLevel::Info, "[Init]  7 fps were asked for, the camera runs at 15."), 1);
    EXPECT_EQ(logged.count(LogLevel::Info, "[Init]  HDR was asked for, this camera has none."), 1);

    logged.clear();
    parameters.input.setFromFile("/recordings/a.rlx2");
    ASSERT_EQ(face.open(parameters), SUCCESS);
    EXPECT_EQ(face.getInitParameters().requested_fps, 30) << "the file's";
    EXPECT_EQ(face.getInitParameters().requested_resolution, HD1080);
}

}  // namespace
}  // namespace oru
