#include <limits>

#include "doubles/camera_fixture.hpp"

namespace oru {
namespace {

using doubles::CameraTest;

class Settings : public CameraTest {
protected:
    [[nodiscard]] int cached(VIDEO_SETTINGS setting) {
        const auto entry = inside.settingsCache().find(setting);
        return entry == inside.settingsCache().end() ? -99 : entry->second;
    }
    [[nodiscard]] int read(VIDEO_SETTINGS setting, ERROR_CODE expected = SUCCESS) {
        int value = -7;
        EXPECT_EQ(camera->getCameraSettings(setting, value), expected);
        return value;
    }
};

constexpr const char* kGuard = "[KORU] oru::Camera::Open has not been called, no Camera instance running.";

TEST_F(Settings, EveryOperationIsGuarded) {
    int a = 5;
    int b = 6;
    Rect roi{1, 2, 3, 4};
    EXPECT_EQ(camera->getCameraSettings(GAIN, a), INVALID_CALL);
    EXPECT_EQ(camera->setCameraSettings(GAIN, 1), INVALID_CALL);
    EXPECT_EQ(camera->getCameraSettings(RANGE_SETTING_16, a, b), INVALID_CALL);
    EXPECT_EQ(camera->setCameraSettings(RANGE_SETTING_16, 1, 2), INVALID_CALL);
    EXPECT_EQ(camera->getCameraSettings(AEC_AGC_ROI, roi), INVALID_CALL);
    EXPECT_EQ(camera->setCameraSettings(AEC_AGC_ROI, roi, false), INVALID_CALL);
    EXPECT_EQ(camera->getCameraSettingsRange(GAIN, a, b), INVALID_CALL);
    EXPECT_FALSE(camera->isCameraSettingSupported(GAIN));
    EXPECT_EQ(camera->enableStreaming({}), INVALID_CALL);
    camera->disableStreaming();
    EXPECT_FALSE(camera->isStreamingEnabled());
    EXPECT_EQ(camera->getStreamingParameters().chunk_size, 16084);

    EXPECT_EQ(logged.count(LogLevel::Error, kGuard), 12);
    const std::vector<LogRecord> records = logged.records();
    EXPECT_EQ(records[6].line, records[7].line) << "both range queries share one guard";
    EXPECT_EQ(a, 5);
    EXPECT_EQ(roi, (Rect{1, 2, 3, 4}));
}

TEST_F(Settings, WritesReachTheDeviceOnceAndInvalidateWhatTheyGovern) {
    ASSERT_EQ(openLive(), SUCCESS);
    factory->grabber.values[GAIN] = 55;
    EXPECT_EQ(camera->setCameraSettings(AEC_AGC, 1), SUCCESS);
    EXPECT_EQ(cached(GAIN), -1);
    EXPECT_EQ(cached(EXPOSURE), -1);
    EXPECT_EQ(read(GAIN), 55) << "unknown: asked of the device";
    EXPECT_EQ(cached(GAIN), -1) << "and not kept";

    EXPECT_EQ(camera->setCameraSettings(GAIN, 20), SUCCESS);
    EXPECT_EQ(camera->setCameraSettings(GAIN, 20), SUCCESS);
    EXPECT_EQ(calls.count("set 6 20 false"), 1);
    EXPECT_EQ(read(GAIN), 20);
    EXPECT_EQ(cached(AEC_AGC), -1);
    EXPECT_EQ(camera->setCameraSettings(AEC_AGC, -1), SUCCESS);
    EXPECT_EQ(camera->setCameraSettings(AEC_AGC, -1), SUCCESS);
    EXPECT_EQ(calls.count("set 8 -1 true"), 2) << "the automatic value always reaches the device";

    EXPECT_EQ(camera->setCameraSettings(SETTING_10_AUTO, 0), SUCCESS);
    EXPECT_EQ(cached(SETTING_10), -1);
    EXPECT_EQ(camera->setCameraSettings(SETTING_10, -1), SUCCESS);
    EXPECT_EQ(cached(SETTING_10_AUTO), 0);
    EXPECT_EQ(camera->setCameraSettings(SETTING_10, 4000), SUCCESS);
    EXPECT_EQ(cached(SETTING_10_AUTO), -1);
}

TEST_F(Settings, CacheSurvivesAReopen) {
    ASSERT_EQ(openLive(), SUCCESS);
    ASSERT_EQ(camera->setCameraSettings(SETTING_0, 3), SUCCESS);
    (void)camera->close();
    ASSERT_EQ(openLive(), SUCCESS);
    EXPECT_EQ(read(SETTING_0), 3);
}

TEST_F(Settings, KindsOfControlsAreKeptApart) {
    ASSERT_EQ(openLive(), SUCCESS);
    int a = 0;
    int b = 0;
    Rect roi;
    for (const VIDEO_SETTINGS setting : {AEC_AGC_ROI, RANGE_SETTING_16, RANGE_SETTING_18}) {
        EXPECT_EQ(camera->setCameraSettings(setting, 1), INVALID_PARAMETER);
        EXPECT_EQ(read(setting, INVALID_PARAMETER), 0);
    }
    EXPECT_EQ(camera->setCameraSettings(SETTING_0, 1, 2), INVALID_PARAMETER);
    EXPECT_EQ(camera->getCameraSettings(SETTING_0, a, b), INVALID_PARAMETER);
    EXPECT_EQ(camera->getCameraSettings(GAIN, roi), INVALID_PARAMETER);
    EXPECT_EQ(camera->setCameraSettings(GAIN, roi, true), INVALID_PARAMETER);
    EXPECT_EQ(read(SETTING_12, FAILURE), 0);
    EXPECT_EQ(read(static_cast<VIDEO_SETTINGS>(21), FAILURE), 0);
    EXPECT_EQ(camera->getCameraSettingsRange(AEC_AGC_ROI, a, b), INVALID_PARAMETER);
    EXPECT_FALSE(camera->isCameraSettingSupported(AEC_AGC_ROI));
    EXPECT_TRUE(camera->isCameraSettingSupported(RANGE_SETTING_17));
    factory->grabber.accepts = false;
    EXPECT_EQ(camera->setCameraSettings(GAIN, 1000), INVALID_PARAMETER);
    EXPECT_TRUE(logged.texts(LogLevel::Error).empty());
}

TEST_F(Settings, SharpnessOfALiveCameraIsTheGrabbers) {
    struct Case {
        INPUT_TYPE type;
        int model;
        int value;
        int sent;
        float factor;
    };
    ASSERT_EQ(openLive(), SUCCESS);
    factory->grabber.values[SHARPNESS] = 6;
    for (const Case& c : std::vector<Case>{{GMSL, 30, -1, 3, 1.0F},
                                           {GMSL, 30, 5, 5, 1.0F},
                                           {INPUT_TYPE_NONE, 2, -1, 4, 3.0F},
                                           {INPUT_TYPE_NONE, 30, -1, 3, 2.5F},
                                           {INPUT_TYPE_NONE, 30, 2, 2, 2.0F}}) {
        SCOPED_TRACE(fmt::format("type {} model {} value {}", static_cast<int>(c.type), c.model, c.value));
        calls.clear();
        inside.grabber()->setInputType(c.type);
        inside.cameraModel() = static_cast<MODEL>(c.model);

        EXPECT_EQ(camera->setCameraSettings(SHARPNESS, c.value), SUCCESS);

        EXPECT_TRUE(calls.has(fmt::format("set 4 {} false", c.sent)));
        EXPECT_EQ(inside.sharpnessFactor(), c.factor);
        EXPECT_EQ(cached(SHARPNESS), -99);
        EXPECT_EQ(read(SHARPNESS), c.type == GMSL ? 6 : c.sent);
    }
}

TEST_F(Settings, RecordedFileTakesWritesAndHasNothingToRead) {
    ASSERT_EQ(openFile(), SUCCESS);
    int a = 0;
    int b = 0;
    Rect roi;
    EXPECT_EQ(camera->setCameraSettings(GAIN, 10), SUCCESS);
    EXPECT_EQ(cached(GAIN), -99);
    EXPECT_EQ(read(GAIN, INVALID_CALL), 0);
    EXPECT_EQ(read(SHARPNESS), 4) << "the file's, although an idle grabber exists";
    factory->grabber.values[GMSL_SETTING_13] = 8;
    EXPECT_EQ(read(GMSL_SETTING_13), 8);
    EXPECT_EQ(camera->getCameraSettings(RANGE_SETTING_16, a, b), INVALID_CALL);
    EXPECT_EQ(camera->setCameraSettings(SETTING_0, 1, 1), INVALID_CALL);
    EXPECT_EQ(camera->getCameraSettings(GAIN, roi), INVALID_CALL);
    EXPECT_EQ(camera->setCameraSettings(AEC_AGC_ROI, roi, true), INVALID_CALL);
    EXPECT_EQ(camera->getCameraSettingsRange(AEC_AGC_ROI, a, b), INVALID_CALL);
    EXPECT_FALSE(camera->isCameraSettingSupported(GAIN));
}

TEST_F(Settings, StreamForwardsToTheSendingCamera) {
    factory->streamInput.values = {{SHARPNESS, 2}, {GAIN, 44}};
    ASSERT_EQ(openStream(), SUCCESS);
    int a = 0;
    int b = 0;
    EXPECT_EQ(read(GAIN), 44);
    EXPECT_EQ(read(SHARPNESS), 2) << "the factor's, as the sender gave it";
    EXPECT_EQ(camera->setCameraSettings(GAIN, 10), SUCCESS);
    EXPECT_EQ(camera->setCameraSettings(GAIN, 10), SUCCESS);
    EXPECT_EQ(calls.count("stream set 6 10 false"), 1);
    EXPECT_EQ(cached(AEC_AGC), -1);
    EXPECT_EQ(camera->setCameraSettings(AEC_AGC, -1), SUCCESS);
    EXPECT_EQ(calls.count("stream set 8 -1 true"), 1);
    EXPECT_EQ(camera->setCameraSettings(SHARPNESS, 5), SUCCESS);
    EXPECT_EQ(read(SHARPNESS), 5);
    constexpr int kLeast = std::numeric_limits<int>::min();
    EXPECT_EQ(camera->setCameraSettings(SHARPNESS, kLeast), SUCCESS);
    EXPECT_EQ(read(SHARPNESS), kLeast) << "what the factor stands for does not fit";
    EXPECT_EQ(camera->setCameraSettings(SHARPNESS, -1), SUCCESS);
    EXPECT_TRUE(calls.has("stream set 4 0 false"));
    EXPECT_EQ(read(SHARPNESS), 0);
    EXPECT_EQ(camera->setCameraSettings(RANGE_SETTING_16, -1, -1), NOT_SUPPORTED);
    EXPECT_EQ(camera->getCameraSettings(RANGE_SETTING_16, a, b), NOT_SUPPORTED);
    Rect roi;
    EXPECT_EQ(camera->setCameraSettings(AEC_AGC_ROI, {0, 0, 9999, 9999}, false), SUCCESS);
    EXPECT_TRUE(calls.has("stream setROI 0 9999x9999 false"));
    EXPECT_EQ(camera->getCameraSettings(AEC_AGC_ROI, roi), SUCCESS);
    EXPECT_EQ(roi, (Rect{1, 2, 3, 4}));
    EXPECT_EQ(camera->getCameraSettingsRange(GAIN, a, b), SUCCESS);
    EXPECT_EQ(b, 8) << "the receiver's range, not the idle grabber's";
    factory->streamInput.knowsRange = false;
    EXPECT_EQ(camera->getCameraSettingsRange(GAIN, a, b), FAILURE);
}

TEST_F(Settings, RangesGoToTheDeviceOfALiveCamera) {
    ASSERT_EQ(openLive(), SUCCESS);
    int min = 0;
    int max = 0;
    EXPECT_EQ(camera->setCameraSettings(RANGE_SETTING_16, -1, -1), SUCCESS);
    EXPECT_EQ(camera->setCameraSettings(RANGE_SETTING_17, -1, 5), SUCCESS);
    EXPECT_TRUE(calls.has("set 16 -1..-1 true") && calls.has("set 17 -1..5 false"));
    EXPECT_EQ(camera->getCameraSettings(RANGE_SETTING_18, min, max), SUCCESS);
    EXPECT_EQ(max, 9);
    factory->grabber.range = {-1, -1};
    EXPECT_EQ(camera->getCameraSettings(RANGE_SETTING_18, min, max), INVALID_PARAMETER);
    inside.grabber().reset();
    EXPECT_EQ(camera->setCameraSettings(RANGE_SETTING_16, 1, 2), FAILURE);
    EXPECT_EQ(read(GAIN, INVALID_CALL), 0);
    EXPECT_EQ(camera->setCameraSettings(GAIN, 1), SUCCESS);
}

TEST_F(Settings, RegionMustLieInsideTheImage) {
    constexpr uint64_t kHuge = std::numeric_limits<uint64_t>::max();
    struct Case {
        Rect region;
        bool reset;
        ERROR_CODE expected;
        const char* call;
    };
    ASSERT_EQ(openLive(), SUCCESS);
    for (const Case& c : std::vector<Case>{{{0, 0, 1920, 1200}, false, SUCCESS, "setROI 0 0,0 1920x1200"},
                                           {{1, 0, 1920, 1200}, false, FAILURE, nullptr},
                                           {{0, 1, 1, 1200}, false, FAILURE, nullptr},
                                           {{kHuge, 0, 2, 2}, false, FAILURE, nullptr},
                                           {{0, 5, 2, kHuge}, false, FAILURE, nullptr},
                                           {{kHuge, 0, 2, 2}, true, SUCCESS, "resetROI 0"}}) {
        calls.clear();
        EXPECT_EQ(camera->setCameraSettings(AEC_AGC_ROI, c.region, c.reset), c.expected);
        EXPECT_EQ(calls.all().size(), c.call == nullptr ? 0U : 1U);
        EXPECT_TRUE(c.call == nullptr || calls.has(c.call));
    }
    factory->grabber.regionStatus = 1;
    Rect roi{9, 9, 9, 9};
    EXPECT_EQ(camera->getCameraSettings(AEC_AGC_ROI, roi), FAILURE);
    EXPECT_EQ(roi, Rect{});
    EXPECT_EQ(camera->setCameraSettings(AEC_AGC_ROI, {0, 0, 4, 4}, false), FAILURE);
}

}  // namespace
}  // namespace oru
