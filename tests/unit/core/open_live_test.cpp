#include <cmath>

#include "doubles/camera_fixture.hpp"

namespace oru {
namespace {

using doubles::CameraTest;

class OpenLive : public CameraTest {
protected:
    void attach(int id, MODEL model, uint32_t serial, uint32_t availability = 0) {
        DeviceProperties device;
        device.id = id;
        device.model = model;
        device.serial_number = serial;
        device.availability = availability;
        factory->directory.devices.push_back(device);
    }
    [[nodiscard]] long reports(ERROR_CODE code) {
        return logged.count(LogLevel::Warning,
                            std::string(toString(code).c_str()) +
                                " in oru::ERROR_CODE oru::CameraOneImpl::open(const oru::InitParametersOne&)");
    }
    static IMUPacket rolledPose(float degrees) {
        IMUPacket packet;
        packet.valid = true;
        const float half = degrees * 3.14159265F / 360.0F;
        packet.orientation = {0.0F, 0.0F, std::sin(half), std::cos(half)};
        return packet;
    }
};

TEST_F(OpenLive, DefaultParametersOpenTheFirstFreeCamera) {
    parameters.requested_fps = -5;

    ASSERT_EQ(openLive(), SUCCESS);

    EXPECT_TRUE(calls.has("setUp -1 1920x1200 30 0 false 2 true false"));
    EXPECT_TRUE(calls.has("endSetup null"));
    EXPECT_TRUE(calls.has("setMonoCapture true"));
    EXPECT_TRUE(calls.has("setup 1920x1200 false"));
    EXPECT_EQ(logged.count(LogLevel::Info, "Using GMSL input... Switched to default resolution HD1200"), 1);
    const InitParametersOne adjusted = camera->getInitParameters();
    EXPECT_EQ(adjusted.requested_fps, 30);
    EXPECT_EQ(adjusted.requested_resolution, HD1200);
    EXPECT_NE(adjusted.cuda_context, nullptr);
    EXPECT_TRUE(camera->isOpened());
    EXPECT_EQ(inside.image().getWidth(), 1920U);
    EXPECT_EQ(inside.image().getMemoryType(), CPU_AND_GPU);
    EXPECT_EQ(inside.image().getDataType(), U8_C2);
    EXPECT_EQ(inside.resolution(), HD1200);
    EXPECT_EQ(inside.information().sensors.firmware_version, 517U);
}

TEST_F(OpenLive, IdIsReadLikeANumberAtTheHeadOfTheText) {
    for (const auto& [text, id] : std::vector<std::pair<const char*, int>>{{" 1", 1}, {"-1x", -1}, {"camera", 0}}) {
        calls.clear();
        parameters.input = InputType(KIND_GMSL_ID, text, "", true);
        (void)openLive();
        EXPECT_TRUE(calls.has(fmt::format("setUp {} 1920x1200 30 0 false 2 true false", id))) << text;
    }
}

TEST_F(OpenLive, SerialNumberFindsItsCamera) {
    attach(4, MODEL_MONO_2UM, 7);
    attach(5, MODEL_MONO_3UM, 4000000000U);
    attach(6, MODEL_MONO_3UM, 9, 1);
    const auto openSerial = [this](const char* serial) {
        parameters.input = InputType(KIND_GMSL_SERIAL, serial, "", true);
        return openLive();
    };

    EXPECT_EQ(openSerial("4000000000"), SUCCESS);
    EXPECT_TRUE(calls.has("setUp 5 1920x1200 30 0 false 2 true false"));
    EXPECT_EQ(openSerial("9"), CAMERA_IN_USE);
    EXPECT_EQ(openSerial("8"), DEVICE_NOT_FOUND);
    EXPECT_EQ(reports(CAMERA_IN_USE) + reports(DEVICE_NOT_FOUND), 2);
    EXPECT_FALSE(camera->isOpened());
}

TEST_F(OpenLive, ModesOfTheModelAreChecked) {
    struct Case {
        MODEL model;
        RESOLUTION resolution;
        bool hdr;
        ERROR_CODE expected;
        bool hdrAfter;
    };
    const std::vector<Case> cases{
        {MODEL_MONO_3UM, HD1200, false, SUCCESS, false},
        {MODEL_MONO_3UM, HD2160, false, RESOLUTION_NOT_SUPPORTED, false},
        {MODEL_MONO_3UM, HD1200, true, CONFIGURATION_ADJUSTED, false},
        {MODEL_MONO_2UM, HD600, false, RESOLUTION_NOT_SUPPORTED, false},
        {MODEL_MONO_2UM, HD1800, false, CONFIGURATION_ADJUSTED, true},
        {MODEL_MONO_2UM, HD2160, true, CONFIGURATION_ADJUSTED, false},
        {MODEL_MONO_2UM, HD1200, true, SUCCESS, true},
    };
    attach(0, MODEL_MONO_3UM, 30);
    attach(1, MODEL_MONO_2UM, 31);
    for (const Case& c : cases) {
        SCOPED_TRACE(fmt::format("model {} resolution {}", static_cast<int>(c.model), static_cast<int>(c.resolution)));
        logged.clear();
        factory->grabber.model = c.model;
        parameters.input.setFromSerialNumber(static_cast<unsigned>(c.model));
        parameters.requested_resolution = c.resolution;
        parameters.use_hdr = c.hdr;

        EXPECT_EQ(openLive(), c.expected);

        EXPECT_EQ(camera->getInitParameters().use_hdr, c.hdrAfter);
        EXPECT_EQ(camera->isOpened(), c.expected == SUCCESS);
        EXPECT_EQ(logged.count(LogLevel::Info,
                               "The chosen resolution is not compatible with the chosen HDR mode. HDR "
                               "mode will be changed."),
                  c.expected == CONFIGURATION_ADJUSTED ? 1 : 0);
        EXPECT_EQ(reports(CONFIGURATION_ADJUSTED), 0);
    }
}

TEST_F(OpenLive, AdjustedConfigurationOpensAtTheSecondTry) {
    attach(0, MODEL_MONO_3UM, 30);
    parameters.input.setFromSerialNumber(30);
    parameters.use_hdr = true;
    ASSERT_EQ(openLive(), CONFIGURATION_ADJUSTED);

    EXPECT_EQ(camera->open(camera->getInitParameters()), SUCCESS);
}

TEST_F(OpenLive, SetUpFailuresAreToldAndNotReported) {
    struct Case {
        int state;
        ERROR_CODE expected;
        const char* message;
    };
    const std::vector<Case> cases{
        {1, INSTALLATION_DAMAGED, "[Init]  A corrupted SDK installation"},
        {2, SENSOR_DATA_UNAVAILABLE,
         "[KORU] A KORU camera has been detected but the sensors device has failed to open"},
        {3, DEVICE_SETUP_FAILED, "[KORU] Camera Open Internal Error: 3"},
        {4, DEVICE_NOT_FOUND, "[KORU] Cannot initialize the camera."},
        {5, CAMERA_IN_USE, "[KORU] Cannot start camera stream."},
        {6, DEVICE_SETUP_FAILED, "[KORU] Cannot initialize the camera."},
        {9, DEVICE_SETUP_FAILED, "[KORU] Cannot initialize the camera."},
        {10, DEVICE_SETUP_FAILED, "[KORU] Cannot initialize the camera."},
        {11, SENSORS_SERIAL_INVALID, "[KORU] A KORU camera has been detected but the sensors device returned a wrong"},
        {12, DEVICE_SETUP_FAILED, "[KORU] Camera Open Internal Error: 12"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.state);
        logged.clear();
        factory->grabber.setUp = static_cast<SETUP_STATE>(c.state);

        EXPECT_EQ(openLive(), c.expected);

        const std::vector<std::string> errors = logged.texts(LogLevel::Error);
        ASSERT_EQ(errors.size(), 1U);
        EXPECT_EQ(errors[0].substr(0, std::strlen(c.message)), c.message);
        EXPECT_TRUE(logged.texts(LogLevel::Warning).empty());
    }
}

TEST_F(OpenLive, FactsThatAreMissingAfterSetUpFailTheOpen) {
    const auto opened = [this](auto change) {
        factory->grabber = {};
        change(factory->grabber);
        return openLive();
    };

    EXPECT_EQ(opened([](auto& g) { g.serial = 0; }), DEVICE_NOT_FOUND);
    EXPECT_EQ(opened([](auto& g) { g.model = MODEL_UNKNOWN; }), DEVICE_SETUP_FAILED);
    EXPECT_EQ(opened([](auto& g) { g.mcuIsNull = true; }), SENSOR_DATA_UNAVAILABLE);
    EXPECT_EQ(opened([](auto& g) { g.width = 0; }), DEVICE_SETUP_FAILED);
    EXPECT_EQ(logged.count(LogLevel::Error, "[KORU] Camera Open Internal Error: 42"), 1);
    parameters.requested_resolution = RESOLUTION_LAST;
    inside.cameraModel() = MODEL_UNKNOWN;
    EXPECT_EQ(opened([](auto&) {}), INVALID_PARAMETER);
    EXPECT_EQ(reports(DEVICE_SETUP_FAILED), 1) << "an image size of 0 is not reported";
    EXPECT_FALSE(camera->isOpened());
}

TEST_F(OpenLive, CameraWithoutImuOpens) {
    factory->grabber.hasMcu = false;

    ASSERT_EQ(openLive(), SUCCESS);

    EXPECT_EQ(inside.imuSource(), INPUT_MODE_NONE);
    SensorsData data;
    EXPECT_EQ(camera->getSensorsData(data, IMAGE), SENSORS_NOT_PRESENT);
}

TEST_F(OpenLive, AutomaticFlipFollowsTheMountingWithinTwoSeconds) {
    struct Case {
        std::vector<IMUPacket> poses;
        bool flipped;
        std::size_t waits;
        std::size_t warnings;
    };
    const IMUPacket none;
    const std::vector<Case> cases{
        {{rolledPose(180)}, true, 0, 0},         {{rolledPose(0)}, false, 0, 0},
        {{rolledPose(100)}, false, 0, 0},        {{none, none, rolledPose(170)}, true, 2, 0},
        {{rolledPose(180), none}, true, 400, 0}, {{none}, false, 400, 1},
    };
    parameters.image_flip = 2;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.poses.size());
        logged.clear();
        factory->scriptedClock.sleeps.clear();
        factory->grabber.mcu.poses = {c.poses.begin(), c.poses.end()};

        ASSERT_EQ(openLive(), SUCCESS);

        EXPECT_EQ(inside.imageFlipped(), c.flipped);
        EXPECT_EQ(factory->scriptedClock.sleeps.size(), c.waits);
        EXPECT_EQ(logged.texts(LogLevel::Warning).size(), c.warnings);
        EXPECT_EQ(logged.count(LogLevel::Info, "[Init]  Sensors FW version: 517"), 1);
    }
}

TEST_F(OpenLive, AutomaticFlipWithoutSensorsForgetsThePreviousOpening) {
    parameters.image_flip = 1;
    ASSERT_EQ(openLive(), SUCCESS);
    factory->grabber.hasMcu = false;
    parameters.image_flip = 2;
    ASSERT_EQ(openLive(), SUCCESS);
    EXPECT_FALSE(inside.imageFlipped());
}

TEST_F(OpenLive, FlipTurnsThePrincipalPoints) {
    for (const auto& [flip, cx, cy] :
         std::vector<std::tuple<int, float, float>>{{0, 950.5F, 610.0F}, {1, 969.5F, 590.0F}, {7, 950.5F, 610.0F}}) {
        parameters.image_flip = flip;
        ASSERT_EQ(openLive(), SUCCESS);
        const CameraModeDescription& configuration = inside.information().configuration;
        EXPECT_FLOAT_EQ(configuration.raw_calibration.cx, cx) << flip;
        EXPECT_FLOAT_EQ(configuration.calibration.cy, cy) << flip;
    }
}

TEST_F(OpenLive, ApplicationsCudaContextIsUsedUnchanged) {
    int mark = 0;
    parameters.cuda_context = reinterpret_cast<CUctx_st*>(&mark);

    ASSERT_EQ(openLive(), SUCCESS);

    EXPECT_FALSE(calls.has("cudaSetDevice 0"));
    EXPECT_FALSE(calls.has("cuCtxCreate 2 0"));
    EXPECT_EQ(camera->getInitParameters().cuda_context, parameters.cuda_context);
}

TEST_F(OpenLive, EveryGpuCallRunsInTheCamerasContext) {
    int mark = 0;
    parameters.cuda_context = reinterpret_cast<CUctx_st*>(&mark);
    factory->gpuRuntime.logsContexts = true;
    Mat image;
    const auto runsInside = [&](const char* call) {
        EXPECT_EQ(calls.count("cuCtxPush"), 1) << call;
        EXPECT_EQ(calls.count("cuCtxPop"), 1) << call;
        EXPECT_LT(calls.at("cuCtxPush"), calls.at(call));
        EXPECT_LT(calls.at(call), calls.at("cuCtxPop"));
        EXPECT_EQ(factory->gpuRuntime.pushed, parameters.cuda_context) << call;
        calls.clear();
    };

    calls.clear();
    ASSERT_EQ(openLive(), SUCCESS);
    EXPECT_LT(calls.at("cuCtxPush"), calls.at("cudaStreamCreate"));
    runsInside("setup 1920x1200 false");
    ASSERT_EQ(camera->grab(), SUCCESS);
    runsInside("process");
    ASSERT_EQ(camera->retrieveImage(image, RECTIFIED, CPU, {}), SUCCESS);
    runsInside("getView 0 1920x1200 1");
    ASSERT_EQ(camera->close(), SUCCESS);
    runsInside("freeRectifier");
}

TEST_F(OpenLive, UnknownInputKindsAreRefusedAfterTheGrabberWasReplaced) {
    for (const auto& [kind, expected] : std::vector<std::pair<int, ERROR_CODE>>{
             {0, INVALID_PARAMETER}, {1, INVALID_PARAMETER}, {6, DEVICE_NOT_FOUND}, {-1, DEVICE_NOT_FOUND}}) {
        calls.clear();
        parameters.input = InputType(static_cast<InputKind>(kind), "", "", true);
        EXPECT_EQ(openLive(), expected) << kind;
        EXPECT_EQ(reports(expected), kind == 0 || kind == 6 ? 1 : 2);
        EXPECT_TRUE(calls.has("makeGrabber 4"));
    }
}

TEST_F(OpenLive, CalibrationComesFromTheFileOfTheSerialNumber) {
    ASSERT_EQ(openLive(), SUCCESS);

    const CameraParameters& raw = inside.information().configuration.raw_calibration;
    EXPECT_FLOAT_EQ(raw.fy, 1001.0F);
    EXPECT_NEAR(raw.distortion[0], 0.1, 1e-6) << "not the coefficient of the resolution's section";
    EXPECT_NEAR(raw.distortion[11], 0.004, 1e-6);
    EXPECT_FLOAT_EQ(raw.focal_length_mm, 3.0F);
    EXPECT_EQ(raw.image_size, (Resolution{1920, 1200}));
    EXPECT_EQ(inside.information().configuration.fps, 30.0F);
}

TEST_F(OpenLive, MissingCalibrationIsFetchedOnce) {
    std::filesystem::remove(calibrationPath(30010001));

    EXPECT_EQ(openLive(), CALIBRATION_MISSING);
    EXPECT_EQ(reports(CALIBRATION_MISSING), 1);
    EXPECT_EQ(calls.count("download " + settings() + " 30010001"), 1);
    const std::vector<std::string> hints = logged.texts(LogLevel::Info);
    EXPECT_NE(hints.back().find("[Init]  Unable to download calibration file.\n * Option 1: Launch KORU Explorer App "
                                "with --dc 30010001\n * Option 2: Download your calibration file on "),
              std::string::npos);

    factory->calibrationSource.onDownload = [this] { writeCalibration(30010001, doubles::kCalibrationOfFamily1); };
    EXPECT_EQ(openLive(), SUCCESS);
}

TEST_F(OpenLive, CalibrationWithoutTheWorkingResolutionIsRefused) {
    for (const char* text :
         {"[MISC]\nSensor_ID = 3\n", "[CAM_fhd1200]\nfx = 1\n", "[MISC]\nSensor_ID = 99999999999\n"}) {
        logged.clear();
        writeCalibration(30010001, text);
        EXPECT_EQ(openLive(), CALIBRATION_INCOMPLETE) << text;
        EXPECT_EQ(reports(CALIBRATION_INCOMPLETE), 1);
    }
    writeCalibration(30010001, "[MISC]\nSensor_ID = 1.7\n[CAM_FHD1200]\nFX = 900px\n");
    EXPECT_EQ(openLive(), SUCCESS) << "family 1, keys in any case, numbers up to their unit";
    EXPECT_FLOAT_EQ(inside.information().configuration.raw_calibration.fx, 900.0F);
}

TEST_F(OpenLive, FrameRatesSnapAndAreLimitedByTheResolution) {
    struct Case {
        RESOLUTION resolution;
        INPUT_TYPE type;
        int request;
        int expected;
        int named;  // the rate that the message calls too high, 0 for none
    };
    const std::vector<Case> cases{
        {RESOLUTION_LAST, GMSL, 30, 30, 0},
        {RESOLUTION_LAST, GMSL, 45, 60, 0},
        {RESOLUTION_LAST, GMSL, 75, 60, 0},
        {RESOLUTION_LAST, GMSL, 80, 100, 0},
        {RESOLUTION_LAST, GMSL, 200, 120, 0},
        {RESOLUTION_LAST, GMSL, 1, 15, 0},
        {RESOLUTION_LAST, GMSL, 0, 15, 0},
        {RESOLUTION_LAST, GMSL, 22, 15, 0},
        {RESOLUTION_LAST, GMSL, 23, 30, 0},
        {RESOLUTION_LAST, GMSL, 10118, 120, 0},
        {RESOLUTION_LAST, GMSL, 10119, 10119, 0},
        {RESOLUTION_LAST, GMSL, 2147483647, 2147483647, 0},
        {HD1200, GMSL, 0, 60, 0},
        {HD1200, GMSL, 120, 60, 120},
        {HD1200, GMSL, 90, 60, 100},
        {HD1080, GMSL, 60, 60, 0},
        {HD1080, INPUT_TYPE_STREAM, 60, 30, 60},
        {HD1242, GMSL, 15, 15, 0},
        {HD1242, GMSL, 60, 15, 60},
        {HD376, GMSL, 120, 100, 120},
        {HD600, GMSL, 0, 120, 0},
        {HD2160, GMSL, 60, 60, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(fmt::format("resolution {} request {}", static_cast<int>(c.resolution), c.request));
        logged.clear();
        inside.resolution() = c.resolution;
        inside.cameraFps() = c.request;

        inside.checkRequestedFps(c.type);

        EXPECT_EQ(inside.cameraFps(), c.expected);
        EXPECT_EQ(logged.count(LogLevel::Info, fmt::format("[Init]  Requested FPS ({}fps) is too high for the current "
                                                           "resolution... Using {} fps instead.",
                                                           c.named, c.expected)),
                  c.named == 0 ? 0 : 1);
        EXPECT_EQ(logged.records().size(), c.named == 0 ? 0U : 1U);
    }
}

}  // namespace
}  // namespace oru
