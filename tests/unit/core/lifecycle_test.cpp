#include <functional>

#include "doubles/camera_fixture.hpp"

namespace oru {
namespace {

using doubles::CameraTest;

class Lifecycle : public CameraTest {};

TEST_F(Lifecycle, NewCameraAnswersWithDefaults) {
    const InitParametersOne defaults = camera->getInitParameters();

    EXPECT_FALSE(camera->isOpened());
    EXPECT_EQ(defaults.requested_resolution, AUTO);
    EXPECT_EQ(defaults.requested_fps, 0);
    EXPECT_TRUE(defaults.rlx_real_time);
    EXPECT_EQ(defaults.reserved_float, 5.0F);
    EXPECT_FALSE(defaults.fast_fail_grab || defaults.use_hdr);
    EXPECT_EQ(camera->getCurrentFPS(), 0.0F);
    EXPECT_EQ(camera->getCameraFPS(), 0.0F);
    EXPECT_EQ(camera->getTimestamp(IMAGE), 0U);
    EXPECT_TRUE(calls.has("makeGrabber 4"));
}

TEST_F(Lifecycle, CloseReleasesEverythingAndMayBeRepeated) {
    ASSERT_EQ(openLive(), SUCCESS);
    ASSERT_EQ(camera->grab(), SUCCESS);
    calls.clear();

    EXPECT_EQ(camera->close(), SUCCESS);

    EXPECT_FALSE(camera->isOpened());
    EXPECT_EQ(inside.image().getMemoryType(), 0);
    EXPECT_NE(camera->getTimestamp(IMAGE), 0U) << "the last image's time stays";
    EXPECT_EQ(camera->getCameraFPS(), 30.0F) << "the last input's rate stays";
    EXPECT_EQ(calls.all(), (std::vector<std::string>{"reader close", "recorder close", "closeGrabber true", "~grabber",
                                                     "freeRectifier"}));
    EXPECT_EQ(camera->close(), SUCCESS);
    EXPECT_EQ(calls.count("closeGrabber true"), 1);
}

TEST_F(Lifecycle, CloseEndsARecordingFirst) {
    ASSERT_EQ(openLive(), SUCCESS);
    ASSERT_EQ(camera->enableRecording({}), SUCCESS);

    (void)camera->close();

    EXPECT_LT(calls.at("disableRecording"), calls.at("recorder close"));
}

TEST_F(Lifecycle, SecondOpenEndsRecordingSenderAndGrabberBeforeItStarts) {
    ASSERT_EQ(openLive(), SUCCESS);
    ASSERT_EQ(camera->enableStreaming({}), SUCCESS);
    ASSERT_EQ(camera->enableRecording({}), SUCCESS);
    calls.clear();

    ASSERT_EQ(openLive(), SUCCESS);

    EXPECT_LT(calls.at("waitForSender"), calls.at("disableRecording"));
    EXPECT_LT(calls.at("disableRecording"), calls.at("~streamOutput"));
    EXPECT_LT(calls.at("~streamOutput"), calls.at("closeGrabber true"));
    EXPECT_LT(calls.at("closeGrabber true"), calls.at("~grabber"));
    EXPECT_LT(calls.at("~grabber"), calls.at("makeGrabber 4"));
    EXPECT_FALSE(camera->isStreamingEnabled());
    EXPECT_EQ(calls.count("cudaStreamDestroy"), 1);
}

TEST_F(Lifecycle, GrabberOutlivesTheSenderThatUsesIt) {
    ASSERT_EQ(openLive(), SUCCESS);
    ASSERT_EQ(camera->enableStreaming({}), SUCCESS);
    calls.clear();

    (void)camera->close();
    EXPECT_TRUE(calls.has("closeGrabber true"));
    EXPECT_FALSE(calls.has("~grabber")) << "a sender may still read it";
    EXPECT_FALSE(calls.has("~streamOutput")) << "only replaced or destroyed with the camera";
    camera.reset();

    EXPECT_LT(calls.at("~streamOutput"), calls.at("~grabber"));
    EXPECT_EQ(calls.count("~streamOutput"), 1);
}

TEST_F(Lifecycle, DestructorTakesNeighboursDownInReverseOrder) {
    ASSERT_EQ(openStream(), SUCCESS);
    ASSERT_EQ(camera->enableStreaming({}), SUCCESS);

    camera.reset();

    EXPECT_LT(calls.at("~playback"), calls.at("~streamInput"));
    EXPECT_LT(calls.at("~streamInput"), calls.at("~streamOutput"));
    EXPECT_LT(calls.at("~streamOutput"), calls.at("~reader"));
    EXPECT_LT(calls.at("~reader"), calls.at("~recorder"));
    EXPECT_TRUE(calls.has("cudaStreamDestroy"));
}

TEST_F(Lifecycle, ExceptionOfACollaboratorPassesThroughAndLeavesEveryLockFree) {
    factory->grabber.pixels.resize(1920 * 1200 * 2);
    const auto enableStreaming = [this] { (void)camera->enableStreaming({}); };
    const auto grab = [this] { (void)camera->grab(); };
    const std::vector<std::pair<const char*, std::function<void()>>> cases{
        {"waitForNewFrame", grab},
        {"getPixels", grab},
        {"getIMUPacketBatch", grab},
        {"ingestIMU", grab},
        {"send", grab},
        {"recorder writeCurrentIMU", grab},
        {"handleRLXFrameRecording", grab},
        {"process", grab},
        {"getView",
         [this] {
             Mat view;
             (void)camera->retrieveImage(view, RECTIFIED, CPU, {});
         }},
        {"getIMUPose",
         [this] {
             SensorsData data;
             (void)camera->getSensorsData(data, CURRENT);
         }},
        {"set 6", [this] { (void)camera->setCameraSettings(GAIN, 1); }},
        {"setROI", [this] { (void)camera->setCameraSettings(AEC_AGC_ROI, Rect{}, false); }},
        {"makeStreamOutput", enableStreaming},
        {"setGrabber", enableStreaming},
        {"enableRecording", [this] { (void)camera->enableRecording({}); }},
        {"disableRecording", [this] { camera->disableRecording(); }},
        {"getGrabberList", [this] { (void)camera->getDeviceList(); }},
        {"setUp", [this] { (void)openLive(); }},
        {"makeGrabber", [this] { (void)openLive(); }},
        {"closeGrabber", [this] { (void)camera->close(); }},
    };
    factory->grabber.mcu.batch.resize(1);
    factory->grabber.mcu.batch.front().imu_timestamp = 1;
    for (const auto& [call, operation] : cases) {
        SCOPED_TRACE(call);
        ASSERT_EQ(openLive(), SUCCESS);
        ASSERT_EQ(camera->enableRecording({}), SUCCESS);
        ASSERT_EQ(camera->enableStreaming({}), SUCCESS);

        calls.failing = call;
        EXPECT_THROW(operation(), std::runtime_error);
        calls.failing.clear();

        EXPECT_TRUE(everyMutexIsFree());
        ASSERT_EQ(openLive(), SUCCESS);
        EXPECT_EQ(camera->grab(), SUCCESS);
    }
}

TEST_F(Lifecycle, ImageWithoutMemoryIsNotHandedToASender) {
    struct NoMemory final : doubles::HostMemoryGpu {
        void* hostAlloc(std::size_t) override { return nullptr; }
        void* deviceAlloc(std::size_t) override { return nullptr; }
    };
    factory->otherGpu = std::make_shared<NoMemory>();
    factory->grabber.pixels.resize(1920 * 1200 * 2);

    ASSERT_EQ(openLive(), SUCCESS);
    ASSERT_EQ(camera->enableStreaming({}), SUCCESS);

    EXPECT_EQ(camera->grab(), SUCCESS);

    EXPECT_TRUE(factory->streamOutput.sent.empty());
}

TEST_F(Lifecycle, RebootResetsOnlyLiveCamerasAndReportsPositiveResults) {
    struct Case {
        INPUT_TYPE type;
        ERROR_CODE reset;
        ERROR_CODE expected;
        bool asked;
        long reports;
    };
    const std::vector<Case> cases{
        {INPUT_TYPE_NONE, SUCCESS, INVALID_PARAMETER, false, 1},
        {GMSL, SUCCESS, SUCCESS, true, 0},
        {GMSL, FAILURE, FAILURE, true, 1},
        {GMSL, CAMERA_UNAVAILABLE, CAMERA_UNAVAILABLE, true, 0},
        {INPUT_TYPE_RLX, SUCCESS, INVALID_PARAMETER, false, 0},
        {INPUT_TYPE_STREAM, SUCCESS, INVALID_PARAMETER, false, 0},
        {INPUT_TYPE_PENDING, SUCCESS, INVALID_PARAMETER, false, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.type));
        calls.clear();
        logged.clear();
        factory->directory.reset = c.reset;

        EXPECT_EQ(CameraOneImpl::reboot(c.type), c.expected);

        EXPECT_EQ(calls.has("resetMCU 1"), c.asked);
        const std::string line = std::string(toString(c.expected).c_str()) +
                                 " in static oru::ERROR_CODE oru::CameraOneImpl::reboot(oru::INPUT_TYPE)";
        EXPECT_EQ(logged.count(LogLevel::Warning, line), c.reports);
    }
    factory->directory.reset = SUCCESS;
    EXPECT_EQ(CameraOneImpl::reboot(), SUCCESS);
}

TEST_F(Lifecycle, ReportNamesFileAndLineInItsSecondMessage) {
    (void)CameraOneImpl::reboot(INPUT_TYPE_NONE);

    const std::vector<LogRecord> records = logged.records();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[1].level, LogLevel::TraceL3);
    EXPECT_EQ(records[1].text, fmt::format("(reboot.cpp l.{})", records[0].line));
    EXPECT_EQ(records[1].line, records[0].line);
}

TEST_F(Lifecycle, ReportedSignaturesAreTheCompilersSpelling) {
    // Only GCC writes these signatures without a blank before the ampersand.
#if defined(__GNUC__) && !defined(__clang__)
    struct Probe {
        static std::string reboot(INPUT_TYPE) { return __PRETTY_FUNCTION__; }
        static std::string open(const InitParametersOne&) { return __PRETTY_FUNCTION__; }
    };
    EXPECT_NE(Probe::reboot(GMSL).find("reboot(oru::INPUT_TYPE)"), std::string::npos);
    EXPECT_NE(Probe::open({}).find("open(const oru::InitParametersOne&)"), std::string::npos);
#endif
    parameters.input = InputType(InputKind{1}, "", "", true);
    (void)camera->open(parameters);
    EXPECT_EQ(logged.count(LogLevel::Warning,
                           std::string(toString(INVALID_PARAMETER).c_str()) +
                               " in oru::ERROR_CODE oru::CameraOneImpl::open(const oru::InitParametersOne&)"),
              1);
}

TEST_F(Lifecycle, DeviceListKeepsTheModelsThatThisCameraDrives) {
    for (const int model : {30, 12, 31, 32}) {
        DeviceProperties device;
        device.model = static_cast<MODEL>(model);
        factory->directory.devices.push_back(device);
    }

    const std::vector<DeviceProperties> devices = camera->getDeviceList();

    ASSERT_EQ(devices.size(), 2U);
    EXPECT_EQ(devices[0].model, MODEL_MONO_3UM);
    EXPECT_EQ(devices[1].model, MODEL_MONO_2UM);
    EXPECT_TRUE(calls.has("getGrabberList true"));
}

}  // namespace
}  // namespace oru
