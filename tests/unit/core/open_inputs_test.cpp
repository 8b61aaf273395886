#include <limits>

#include "doubles/camera_fixture.hpp"

namespace oru {
namespace {

using doubles::CameraTest;
using doubles::ScopedEnvironment;

class OpenRecorded : public CameraTest {};
class OpenStream : public CameraTest {};

TEST_F(OpenRecorded, FactsOfTheFileBecomeTheCameras) {
    ASSERT_EQ(openFile(), SUCCESS);

    EXPECT_LT(calls.at("setPosition 3"), calls.at("setPosition 0"));
    EXPECT_TRUE(calls.has("reader open /recordings/a.rlx2"));
    EXPECT_EQ(camera->getInitParameters().requested_resolution, HD1080);
    EXPECT_EQ(inside.resolution(), HD1080);
    EXPECT_EQ(inside.sharpnessFactor(), 3.0F);
    EXPECT_EQ(camera->getCameraFPS(), 30.0F);
    EXPECT_EQ(inside.imuSource(), INPUT_MODE_RECORDED);
    EXPECT_TRUE(calls.has("getDecompressionPlatform")) << "real time is wanted and the mode is coded";
}

TEST_F(OpenRecorded, VersionOneFileHasItsOwnHeader) {
    factory->rlx.version = 1;
    factory->rlx.v2.flipped = true;
    parameters.image_flip = 2;

    ASSERT_EQ(openFile(), SUCCESS);

    EXPECT_EQ(camera->getCameraFPS(), 15.5F);
    EXPECT_EQ(inside.cameraFps(), 15);
    EXPECT_FALSE(inside.imageFlipped());
    SensorsData data;
    EXPECT_EQ(camera->getSensorsData(data, CURRENT), INVALID_PARAMETER);
}

TEST_F(OpenRecorded, RecordedFlipIsTakenWhenAutomatic) {
    factory->rlx.v2.flipped = true;
    parameters.image_flip = 2;
    ASSERT_EQ(openFile(), SUCCESS);
    EXPECT_TRUE(inside.imageFlipped());

    parameters.image_flip = 0;
    ASSERT_EQ(openFile(), SUCCESS);
    EXPECT_FALSE(inside.imageFlipped());
}

TEST_F(OpenRecorded, AutomaticFlipIsLeftToTheBringUp) {
    parameters.image_flip = 1;
    ASSERT_EQ(openFile(), SUCCESS);
    parameters.image_flip = 2;

    factory->rlx.openings = {rlxrw::RLX_NOT_DECODABLE};
    EXPECT_EQ(openFile(), RLX_CODEC_UNAVAILABLE);
    EXPECT_TRUE(inside.imageFlipped()) << "no bring-up came that far";

    factory->grabber.hasMcu = false;
    parameters.input = {};
    ASSERT_EQ(openLive(), SUCCESS);
    EXPECT_FALSE(inside.imageFlipped()) << "nothing measures it";
}

TEST_F(OpenRecorded, RatesThatNoCameraHasAreCountedWithinAnInteger) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    constexpr int kMost = std::numeric_limits<int>::max();
    for (const auto& [rate, counted, sent] :
         std::vector<std::tuple<float, int, int>>{{std::numeric_limits<float>::quiet_NaN(), 0, 0},
                                                  {kInfinity, kMost, kMost},
                                                  {-kInfinity, std::numeric_limits<int>::min(), 0},
                                                  {3e9F, kMost, kMost},
                                                  {-1.5F, -1, 0},
                                                  {29.97F, 29, 29}}) {
        SCOPED_TRACE(rate);
        factory->rlx.v2.fps = rate;
        ASSERT_EQ(openFile(), SUCCESS);
        EXPECT_EQ(inside.cameraFps(), counted);
        ASSERT_EQ(camera->enableStreaming({}), SUCCESS);
        EXPECT_EQ(factory->streamOutput.configuration.fps, sent);
        EXPECT_LE(factory->streamOutput.configuration.gop_size, 256);
        EXPECT_GE(factory->streamOutput.configuration.gop_size, 0);
    }
}

TEST_F(OpenRecorded, HomeReplacesTheFirstTilde) {
    const ScopedEnvironment home("HOME", "/home/u");
    for (const auto& [path, expected] : std::vector<std::pair<const char*, const char*>>{
             {"~/rec/a.rlx2", "/home/u/rec/a.rlx2"}, {"/x/~/~.rlx2", "/x//home/u/~.rlx2"}}) {
        (void)openFile(path);
        EXPECT_TRUE(calls.has(fmt::format("reader open {}", expected)));
    }
    const ScopedEnvironment noHome("HOME", nullptr);
    (void)openFile("~/b.rlx2");
    EXPECT_TRUE(calls.has("reader open ~/b.rlx2"));
}

TEST_F(OpenRecorded, RealTimeIsSwitchedOffWhereTheFileCannotKeepIt) {
    struct Case {
        RLX_COMPRESSION_MODE mode;
        bool platform;
        bool kept;
        const char* warning;
    };
    constexpr const char* kRaw = "[Init]  RLX file does not support real time decoding (RAW compression mode selected)";
    constexpr const char* kMode = "[Init]  Unsupported RLX real time mode with the current setup";
    for (const Case& c : std::vector<Case>{{RLX_RAW, true, false, kRaw},
                                           {RLX_H264, false, true, nullptr},
                                           {RLX_MODE_5, false, false, kMode},
                                           {RLX_MODE_8, false, false, kMode},
                                           {RLX_MODE_10, true, true, nullptr}}) {
        SCOPED_TRACE(static_cast<int>(c.mode));
        logged.clear();
        calls.clear();
        factory->rlx.mode = c.mode;
        factory->rlx.platform = c.platform;

        ASSERT_EQ(openFile(), SUCCESS);

        EXPECT_EQ(camera->getInitParameters().rlx_real_time, c.kept);
        EXPECT_EQ(logged.texts(LogLevel::Warning).size(), c.warning == nullptr ? 0U : 1U);
        EXPECT_EQ(c.warning == nullptr ? 0 : logged.count(LogLevel::Warning, c.warning), c.warning == nullptr ? 0 : 1);
        EXPECT_LE(calls.count("getDecompressionPlatform"), c.mode == RLX_RAW ? 0 : 1);
    }
    parameters.rlx_real_time = false;
    factory->rlx.mode = RLX_MODE_5;
    calls.clear();
    ASSERT_EQ(openFile(), SUCCESS);
    EXPECT_FALSE(calls.has("getDecompressionPlatform"));
    const ScopedEnvironment on("KORU_SDK_REAL_TIME_RLX", "Yes");
    factory->rlx.mode = RLX_H264;
    ASSERT_EQ(openFile(), SUCCESS);
    EXPECT_TRUE(camera->getInitParameters().rlx_real_time);
}

TEST_F(OpenRecorded, DamagedFileIsRepairedOrRefused) {
    constexpr const char* kCannotLoad =
        "[Init]  Cannot load RLX file. Check that the path of the RLX is correct, avoid white spaces in filename, add "
        "\".rlx\" or \".rlx2\" extension to filename.";
    struct Case {
        std::deque<int> openings;
        int repair;
        const char* switchedOff;
        ERROR_CODE expected;
        const char* lastInfo;
    };
    using namespace rlxrw;
    constexpr const char* kTrying = "Corruption detected in RLX file, attempting to auto-repair the file...";
    constexpr const char* kFailed = "RLX auto-repair failed";
    for (const Case& c :
         std::vector<Case>{{{RLX_DAMAGED, RLX_OPENED}, REPAIR_DONE, nullptr, SUCCESS, "RLX auto-repair succeeded"},
                           {{RLX_DAMAGED, RLX_DAMAGED}, REPAIR_DONE, nullptr, RLX_FILE_UNREADABLE, kTrying},
                           {{RLX_DAMAGED}, REPAIR_UNREADABLE, nullptr, RLX_FILE_UNREADABLE, kFailed},
                           {{RLX_DAMAGED}, REPAIR_NOT_WRITABLE, nullptr, RLX_FILE_UNREADABLE, kFailed},
                           {{RLX_DAMAGED}, 7, nullptr, RLX_FILE_UNREADABLE, kFailed},
                           {{RLX_DAMAGED}, REPAIR_DONE, "1", RLX_FILE_UNREADABLE, nullptr},
                           {{7}, REPAIR_DONE, nullptr, SUCCESS, nullptr}}) {
        SCOPED_TRACE(c.repair);
        const ScopedEnvironment off("KORU_SDK_DISABLE_AUTO_REPAIR_RLX", c.switchedOff);
        calls.clear();
        logged.clear();
        factory->rlx.openings = c.openings;
        factory->rlx.repair = c.repair;

        EXPECT_EQ(openFile(), c.expected);

        EXPECT_EQ(logged.count(LogLevel::Error, kCannotLoad), c.expected == SUCCESS ? 0 : 1);
        const std::vector<std::string> infos = logged.texts(LogLevel::Info);
        EXPECT_EQ(infos.empty() ? nullptr : c.lastInfo, c.lastInfo);
        EXPECT_EQ(c.lastInfo == nullptr ? "" : infos.back(), c.lastInfo == nullptr ? "" : c.lastInfo);
        EXPECT_EQ(calls.has("repair /recordings/a.rlx2 '' true false"), c.lastInfo != nullptr);
    }
}

TEST_F(OpenRecorded, FilesThatCannotBePlayedAreReported) {
    factory->rlx.openings = {rlxrw::RLX_NOT_DECODABLE};
    EXPECT_EQ(openFile(), RLX_CODEC_UNAVAILABLE);
    factory->rlx.model = MODEL{12};
    EXPECT_EQ(openFile(), NOT_SUPPORTED);
    EXPECT_EQ(inside.imageSize(), Resolution{}) << "the model comes before the size";
    factory->rlx.model = MODEL_MONO_2UM;
    factory->rlx.v2.width = 0;
    EXPECT_EQ(openFile(), DEVICE_SETUP_FAILED);
    factory->rlx.v2 = {31020002, 1600, 1200, 30.0F, false, false};
    EXPECT_EQ(openFile(), SUCCESS);
    EXPECT_EQ(camera->getInitParameters().requested_resolution, RESOLUTION_LAST);
}

TEST_F(OpenRecorded, BuildWithoutTheModuleSaysSo) {
    factory->hasRecordings = false;
    CameraOneImpl without(factory);
    parameters.input.setFromFile("/recordings/a.rlx2");

    EXPECT_EQ(without.open(parameters), NOT_SUPPORTED);
    EXPECT_EQ(without.getCameraFPS(), 0.0F);
    EXPECT_EQ(without.grab(), CAMERA_UNAVAILABLE);
}

TEST_F(OpenStream, AddressIsSplitAtTheLastColon) {
    struct Case {
        const char* address;
        const char* connected;
        ERROR_CODE expected;
    };
    for (const Case& c : std::vector<Case>{{"10.0.0.7:30010", "connect 10.0.0.7 30010 0", SUCCESS},
                                           {"10.0.0.7", "connect 10.0.0.7 30000 0", SUCCESS},
                                           {"fe80::1:30010", "connect fe80::1 30010 0", SUCCESS},
                                           {"host:", "connect host 0 0", SUCCESS},
                                           {"host:65536", nullptr, INVALID_PARAMETER},
                                           {"host:4294997296", nullptr, INVALID_PARAMETER},
                                           {"host:99999999999999999999", nullptr, INVALID_PARAMETER},
                                           {"host:-1", nullptr, INVALID_PARAMETER}}) {
        SCOPED_TRACE(c.address);
        calls.clear();
        EXPECT_EQ(openStream(c.address), c.expected);
        EXPECT_EQ(calls.has("makeStreamInput false"), c.connected != nullptr);
        EXPECT_TRUE(c.connected == nullptr || calls.has(c.connected));
    }
}

TEST_F(OpenStream, FactsOfTheSenderBecomeTheCameras) {
    factory->streamInput.values[SHARPNESS] = 3;
    parameters.image_flip = 2;
    parameters.verbosity = 1;

    ASSERT_EQ(openStream(), SUCCESS);

    EXPECT_TRUE(calls.has("makeStreamInput true"));
    EXPECT_EQ(camera->getCameraFPS(), 25.0F);
    EXPECT_EQ(inside.sharpnessFactor(), 2.5F);
    EXPECT_TRUE(inside.imageFlipped());
    EXPECT_EQ(inside.imuSource(), INPUT_MODE_STREAM);
    EXPECT_EQ(inside.resolution(), HD1200);
    EXPECT_EQ(inside.information().sensors.firmware_version, 502U);
}

TEST_F(OpenStream, ConnectionFailuresAreTold) {
    for (const auto& [status, expected] :
         std::vector<std::pair<int, ERROR_CODE>>{{STREAM_NOT_DESCRIBED, FAILURE},
                                                 {3, FAILURE},
                                                 {STREAM_BAD_ADDRESS, STREAM_SETUP_FAILED},
                                                 {STREAM_UNUSABLE_KEY, STREAM_SETUP_FAILED}}) {
        factory->streamInput.opening = status;
        EXPECT_EQ(openStream(), expected) << status;
        EXPECT_FALSE(camera->isOpened());
    }
    factory->streamInput.opening = STREAM_CONNECTED;
    factory->streamInput.description.model = MODEL_UNKNOWN;
    EXPECT_EQ(openStream(), NOT_SUPPORTED);
}

TEST_F(OpenStream, NextOpenEndsTheReceiver) {
    ASSERT_EQ(openStream(), SUCCESS);
    calls.clear();
    ASSERT_EQ(openStream(), SUCCESS);
    EXPECT_LT(calls.at("makeStreamInput false"), calls.at("~streamInput"));
    EXPECT_LT(calls.at("~streamInput"), calls.at("connect 10.0.0.7 30010 0"));

    calls.clear();
    parameters.input = {};
    ASSERT_EQ(openLive(), SUCCESS);
    EXPECT_TRUE(calls.has("~streamInput"));
}

TEST_F(OpenStream, TheSensorsCalibrationIsTheSendersAndNeverThatOfTheCameraBefore) {
    factory->grabber.mcu.calibration.values[0] = 1.5F;
    ASSERT_EQ(openLive(), SUCCESS);
    ASSERT_EQ(inside.imuCalibration(), factory->grabber.mcu.calibration);

    ASSERT_EQ(openStream(), SUCCESS);
    EXPECT_EQ(inside.imuCalibration(), ImuCalibration{}) << "nothing was announced";

    factory->streamInput.imuCalibration.values[7] = -3.0F;
    ASSERT_EQ(openStream(), SUCCESS);
    EXPECT_EQ(inside.imuCalibration(), factory->streamInput.imuCalibration);
    ASSERT_EQ(camera->enableStreaming({}), SUCCESS);
    EXPECT_EQ(factory->streamOutput.imuCalibration, factory->streamInput.imuCalibration) << "and is sent on";
    EXPECT_LT(calls.at("setImuCalibration"), calls.at("setGrabber")) << "before anything is announced";
}

TEST_F(OpenStream, OpenForgetsTheSensorsOfThePreviousInput) {
    factory->grabber.packet.imu_timestamp = 77;
    ASSERT_EQ(openLive(), SUCCESS);
    ASSERT_EQ(camera->grab(), SUCCESS);
    ASSERT_EQ(inside.currentImu().imu_timestamp, 77U);

    factory->streamInput.description.has_imu = false;
    ASSERT_EQ(openStream(), SUCCESS);

    EXPECT_EQ(inside.imuSource(), INPUT_MODE_NONE);
    EXPECT_EQ(inside.currentImu(), IMUPacket{});
}

}  // namespace
}  // namespace oru
