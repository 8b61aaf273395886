#include <cmath>

#include "collaborators/frame_metadata.hpp"
#include "doubles/HostMemoryGpu.hpp"
#include "doubles/camera_fixture.hpp"
#include "oru_koru/CameraUtils.hpp"

namespace oru {
namespace {

using doubles::CameraTest;

class RetrieveImage : public CameraTest {};
class CameraInformation : public CameraTest {};

TEST_F(RetrieveImage, ViewDecidesTheElementType) {
    ASSERT_EQ(openLive(), SUCCESS);
    Mat view;
    for (const auto& [asked, type] : std::vector<std::pair<VIEW, MAT_TYPE>>{
             {RECTIFIED, U8_C4}, {RECTIFIED_GRAY, U8_C1}, {UNRECTIFIED, U8_C4}, {UNRECTIFIED_GRAY, U8_C1}}) {
        EXPECT_EQ(camera->retrieveImage(view, asked, CPU, {960, 600}), SUCCESS);
        EXPECT_EQ(view.getDataType(), type);
        EXPECT_EQ(view.getWidth(), 960U);
        EXPECT_TRUE(calls.has(fmt::format("getView {} 960x600 1", static_cast<int>(asked))));
    }
}

TEST_F(RetrieveImage, RefusalsComeInOrder) {
    Mat view;
    EXPECT_EQ(camera->retrieveImage(view, RECTIFIED, CPU, {1, 1}), RESOLUTION_NOT_SUPPORTED) << "never opened";
    ASSERT_EQ(openLive(), SUCCESS);
    logged.clear();
    for (const int wrong : {1, 3, 5, 7, 8, -2}) {
        EXPECT_EQ(camera->retrieveImage(view, static_cast<VIEW>(wrong), CPU, {5000, 5000}), INVALID_CALL) << wrong;
    }
    EXPECT_TRUE(logged.records().empty());
    EXPECT_EQ(camera->retrieveImage(view, RECTIFIED, CPU, {1921, 1201}), RESOLUTION_NOT_SUPPORTED);
    EXPECT_EQ(logged.texts(LogLevel::Warning), std::vector<std::string>{"[Mat]  Desired width exceed image width."});
    EXPECT_EQ(camera->retrieveImage(view, RECTIFIED, CPU, {1920, 1201}), RESOLUTION_NOT_SUPPORTED);
    (void)camera->close();
    EXPECT_EQ(camera->retrieveImage(view, static_cast<VIEW>(1), CPU, {}), CAMERA_NOT_READY);
}

TEST_F(RetrieveImage, FittingContainerIsKept) {
    ASSERT_EQ(openLive(), SUCCESS);
    Mat view;
    ASSERT_EQ(camera->retrieveImage(view, RECTIFIED, CPU, {0, 600}), SUCCESS);
    EXPECT_EQ(view.getHeight(), 1200U) << "a size without area asks for the camera's own";
    const auto* pixels = view.getPtr<unsigned char>(CPU);

    ASSERT_EQ(camera->retrieveImage(view, UNRECTIFIED, GPU, {}), SUCCESS);

    EXPECT_EQ(view.getPtr<unsigned char>(CPU), pixels);
    EXPECT_EQ(view.getMemoryType(), CPU) << "another memory is the rectifier's business";
}

TEST_F(RetrieveImage, ShowsTheLastGrabbedFrameOfAStreamWhileLaterOnesAreRefused) {
    parameters.fast_fail_grab = true;
    ASSERT_EQ(openStream(), SUCCESS);
    factory->streamInput.thenFrame = false;
    rlxrw::rlxSampleMetadata withSample{};
    rlxrw::convertMetadataFromMCUData(withSample, {.orientation = {0, 0, 0, 1}});
    Mat view;
    const auto shows = [&] {
        EXPECT_EQ(camera->retrieveImage(view, UNRECTIFIED_GRAY, CPU, {}), SUCCESS);
        return static_cast<int>(view.getPtr<unsigned char>(CPU)[0]);
    };
    for (const int level : {50, 60, 70}) {
        const auto pixel = static_cast<unsigned char>(level);
        factory->streamInput.arrivals = {{{pixel}, 1'000U * pixel, withSample},
                                         {{static_cast<unsigned char>(level + 1)}, 1'000U * pixel + 1, {}},
                                         {{static_cast<unsigned char>(level + 2)}, 1'000U * pixel + 2, {}}};
        ASSERT_EQ(camera->grab(), SUCCESS);
        EXPECT_EQ(shows(), level);
        ASSERT_EQ(camera->grab(), CAMERA_NOT_READY) << "frames without a sample are none";
        ASSERT_TRUE(factory->streamInput.arrivals.empty());
        EXPECT_EQ(shows(), level) << "a refused frame is shown";
    }
}

TEST_F(RetrieveImage, SaysOnceThatThereIsNoMemoryForImages) {
    class FullGpu final : public doubles::HostMemoryGpu {
        void* hostAlloc(std::size_t /*bytes*/) override { return nullptr; }
    };
    factory->otherGpu = std::make_shared<FullGpu>();

    EXPECT_EQ(openLive(), SUCCESS) << "the opening does not depend on it";

    EXPECT_EQ(logged.count(LogLevel::Error, "[Init]  There is no memory for images of 1920 x 1200 pixels."), 1);
}

TEST_F(CameraInformation, IntrinsicsFollowTheRequestedSize) {
    struct Case {
        Resolution size;
        float fx;
        uint64_t width;
        std::size_t warnings;
    };
    ASSERT_EQ(openLive(), SUCCESS);
    for (const Case& c : std::vector<Case>{{{1920, 1200}, 1000.0F, 1920, 0},
                                           {{960, 600}, 500.0F, 960, 0},
                                           {{3840, 2160}, 1000.0F, 1920, 1},
                                           {{0, 600}, 1000.0F, 1920, 0}}) {
        SCOPED_TRACE(c.size.width);
        logged.clear();

        const CameraDescription description = camera->getCameraInformation(c.size);

        EXPECT_FLOAT_EQ(description.configuration.raw_calibration.fx, c.fx);
        EXPECT_FLOAT_EQ(description.configuration.calibration.fx, c.fx);
        EXPECT_EQ(description.configuration.calibration.image_size.width, c.width);
        EXPECT_FLOAT_EQ(description.configuration.raw_calibration.focal_length_mm, 3.0F);
        EXPECT_GT(description.configuration.calibration.fov_h, description.configuration.calibration.fov_v);
        EXPECT_EQ(logged.texts(LogLevel::Warning).size(), c.warnings);
    }
}

TEST_F(CameraInformation, ClosedCameraHasFiniteDefaults) {
    const CameraDescription description = camera->getCameraInformation({});

    EXPECT_EQ(description.model, MODEL_UNKNOWN);
    EXPECT_EQ(description.input_type, INPUT_TYPE_NONE);
    EXPECT_EQ(description.configuration.calibration.fx, 0.0F);
    EXPECT_EQ(description.sensors.imu_to_camera, Transform());
}

TEST_F(CameraInformation, SensorsAreDescribedAlikeForEveryInput) {
    const SensorsDescription sensors = camera->getCameraInformation({}).sensors;

    EXPECT_FLOAT_EQ(sensors.accelerometer.resolution, 0.0023950196F);
    EXPECT_FLOAT_EQ(sensors.accelerometer.range[1], 78.48F);
    EXPECT_EQ(sensors.accelerometer.unit, METER_PER_SECOND_SQUARED);
    EXPECT_FLOAT_EQ(sensors.gyroscope.resolution, 0.030517578F);
    EXPECT_FLOAT_EQ(sensors.gyroscope.noise_density, 0.004721F);
    EXPECT_FLOAT_EQ(sensors.gyroscope.random_walk, 0.0038F);
    EXPECT_EQ(sensors.gyroscope.sampling_rate, 400.0F);
    EXPECT_TRUE(sensors.gyroscope.is_available && !sensors.magnetometer.is_available);
    EXPECT_EQ(sensors.barometer.type, SENSOR_TYPE_NONE);
    EXPECT_TRUE(std::isnan(sensors.magnetometer.range[0]));
}

TEST_F(CameraInformation, ImuPoseIsTurnedIntoTheApplicationsAxesAndUnit) {
    parameters.length_unit = UNIT_METER;
    parameters.axis_convention = AXIS_CONVENTION_2;
    factory->grabber.mcu.imuToCamera(0, 3) = 10.0F;
    factory->grabber.mcu.imuToCamera(1, 3) = 20.0F;
    ASSERT_EQ(openLive(), SUCCESS);

    const CameraDescription description = camera->getCameraInformation({});

    EXPECT_EQ(description.input_type, GMSL);
    EXPECT_FLOAT_EQ(description.sensors.imu_to_camera(0, 3), 0.01F);
    EXPECT_FLOAT_EQ(description.sensors.imu_to_camera(1, 3), -0.02F);
    EXPECT_EQ(description.sensors.firmware_version, 517U);
}

TEST_F(CameraInformation, RecordedPoseIsTakenWhenItIsARigidTransform) {
    Matrix4f pose;
    pose.setIdentity();
    pose(1, 3) = 7.0F;
    parameters.axis_convention = AXIS_CONVENTION_2;
    factory->rlx.imuToCamera = pose;
    ASSERT_EQ(openFile(), SUCCESS);
    EXPECT_FLOAT_EQ(camera->getCameraInformation({}).sensors.imu_to_camera(1, 3), -7.0F);
    EXPECT_EQ(camera->getCameraInformation({}).input_type, INPUT_TYPE_RLX);

    factory->rlx.v2.serial_number = 502;
    writeCalibration(502, doubles::kCalibrationOfFamily2);
    ASSERT_EQ(openFile(), SUCCESS);
    inside.information().serial_number = 31020002;
    EXPECT_FLOAT_EQ(camera->getCameraInformation({}).sensors.imu_to_camera(1, 3), 7.0F) << "the reader's number counts";

    factory->rlx.imuToCamera.value()(0, 0) = 2.0F;
    EXPECT_EQ(camera->getCameraInformation({}).sensors.imu_to_camera, Transform());
    EXPECT_EQ(camera->getCameraInformation({}).configuration.fps, 30.0F);
}

TEST_F(CameraInformation, StreamPoseNeedsAQuaternionAndVersionFive) {
    factory->streamInput.pose = {0.0F, 0.0F, 0.0F, 1.0F, 1.0F, 2.0F, 3.0F};
    ASSERT_EQ(openStream(), SUCCESS);
    const Transform turned = camera->getCameraInformation({}).sensors.imu_to_camera;
    EXPECT_FLOAT_EQ(turned(0, 0), -1.0F);
    EXPECT_FLOAT_EQ(turned(2, 3), 3.0F);

    factory->streamInput.versionByte = 4;
    EXPECT_EQ(camera->getCameraInformation({}).sensors.imu_to_camera, Transform());
    factory->streamInput.versionByte = 5;
    factory->streamInput.pose.z = 0.0F;
    EXPECT_EQ(camera->getCameraInformation({}).sensors.imu_to_camera, Transform());
}

}  // namespace
}  // namespace oru
