#include <Eigen/Geometry>
#include <cmath>
#include <limits>
#include <random>

#include "collaborators/frame_metadata.hpp"
#include "collaborators/kit_functions.hpp"
#include "doubles/camera_fixture.hpp"
#include "oru_koruone/imu_frame.hpp"

namespace oru {
namespace {

using doubles::CameraTest;
using Location = SensorsData::TemperatureData::SENSOR_LOCATION;
constexpr float kPi = 3.14159265F;

std::array<float, 4> quaternion(const Eigen::Quaternionf& q) {
    return {q.x(), q.y(), q.z(), q.w()};
}

Eigen::Matrix4f matrix(const Transform& transform) {
    Eigen::Matrix4f result;
    cvtMatrix4f(transform, result);
    return result;
}

IMUPacket sampleAt(uint64_t time) {
    IMUPacket packet;
    packet.valid = true;
    packet.imu_timestamp = time;
    packet.orientation = quaternion(Eigen::Quaternionf(Eigen::AngleAxisf(0.4F, Eigen::Vector3f(1, 2, 3).normalized())));
    packet.vector_1 = {1, 2, 3};
    packet.vector_2 = {4, 5, 6};
    packet.vector_3 = {7, 8, 9};
    packet.vector_4 = {10, 11, 12};
    packet.variances_a = {1, 4, 9};
    packet.variances_b = {2, 3, 5};
    packet.imu_temperature = 31.5F;
    packet.sample_state = 2;
    return packet;
}

class Sensors : public CameraTest {
protected:
    Sensors() {
        factory->grabber.packet = sampleAt(1'000'000'000);
        factory->grabber.mcu.poses = {sampleAt(1'000'000'000)};
    }
    [[nodiscard]] SensorsData read(TIME_REFERENCE reference) {
        SensorsData data;
        EXPECT_EQ(camera->getSensorsData(data, reference), SUCCESS);
        return data;
    }
};

TEST_F(Sensors, RefusalsNameTheirReason) {
    SensorsData data;
    EXPECT_EQ(camera->getSensorsData(data, IMAGE), FAILURE);
    EXPECT_EQ(logged.texts(LogLevel::Error).size(), 1U);
    ASSERT_EQ(openLive(), SUCCESS);
    factory->grabber.mcu.ready = false;
    data.temperature.temperature_map[Location::SENSOR_LOCATION_2] = 1.0F;
    EXPECT_EQ(camera->getSensorsData(data, CURRENT), DEVICE_NOT_FOUND);
    EXPECT_TRUE(data.temperature.temperature_map.empty()) << "the record is cleared first";
    ASSERT_EQ(openFile(), SUCCESS);
    EXPECT_EQ(camera->getSensorsData(data, CURRENT), SENSOR_DATA_UNAVAILABLE);
    factory->streamInput.suppliesImu = false;
    ASSERT_EQ(openStream(), SUCCESS);
    EXPECT_EQ(camera->getSensorsData(data, CURRENT), INVALID_PARAMETER);
    EXPECT_EQ(camera->getSensorsData(data, IMAGE), SUCCESS);
    EXPECT_TRUE(everyMutexIsFree());
}

TEST_F(Sensors, ImageSampleKeepsItsMeasurementsInTheirSlots) {
    ASSERT_EQ(openLive(), SUCCESS);
    ASSERT_EQ(camera->grab(), SUCCESS);

    const SensorsData data = read(IMAGE);

    EXPECT_TRUE(data.imu.is_available && data.synced_with_image == 1);
    EXPECT_EQ(data.imu.timestamp, 1'000'000'000U);
    EXPECT_EQ(data.imu.vector_1, Vector3<float>(7, 8, 9));
    EXPECT_EQ(data.imu.vector_2, Vector3<float>(10, 11, 12));
    EXPECT_EQ(data.imu.vector_3, Vector3<float>(1, 2, 3));
    EXPECT_EQ(data.imu.vector_4, Vector3<float>(4, 5, 6));
    EXPECT_EQ(data.imu.covariance_1(1, 1), 4.0F);
    EXPECT_EQ(data.imu.covariance_2(2, 2), 5.0F);
    EXPECT_EQ(data.sample_state, 2);
    EXPECT_EQ(data.temperature.temperature_map.at(Location::SENSOR_LOCATION_IMU), 31.5F);
    EXPECT_FALSE(data.barometer.is_available || data.magnetometer.is_available);
}

TEST_F(Sensors, AdditionalSensorsAreReportedWhenTheSampleHasThem) {
    IMUPacket& packet = factory->grabber.packet;
    packet.imu_temperature = std::numeric_limits<float>::quiet_NaN();
    packet.barometer_available = packet.magnetometer_available = packet.extra_temperatures_present = true;
    packet.barometer_timestamp = 5;
    packet.magnetometer_timestamp = 6;
    packet.barometer_temperature = 20.0F;
    packet.extra_temperatures = {40.0F, 41.0F};
    packet.pressure = 990.0F;
    packet.relative_altitude = 1.5F;
    packet.heading = kPi;
    packet.heading_accuracy = 0.25F;
    ASSERT_EQ(openLive(), SUCCESS);
    for (const auto& [state, error] :
         std::vector<std::pair<int, float>>{{2, 0.25F}, {3, -1.0F}, {4, -1.0F}, {5, 0.25F}}) {
        packet.heading_state = state;
        ASSERT_EQ(camera->grab(), SUCCESS);
        EXPECT_EQ(read(IMAGE).magnetometer.heading_error, error) << state;
    }

    const SensorsData data = read(IMAGE);

    const auto& temperatures = data.temperature.temperature_map;
    EXPECT_EQ(temperatures.count(Location::SENSOR_LOCATION_IMU), 0U);
    EXPECT_EQ(temperatures.at(Location::SENSOR_LOCATION_BAROMETER), 20.0F);
    EXPECT_EQ(temperatures.at(Location::SENSOR_LOCATION_3), 41.0F);
    EXPECT_EQ(data.barometer.timestamp, 5U);
    EXPECT_EQ(data.magnetometer.timestamp, 6U);
    EXPECT_FLOAT_EQ(data.barometer.pressure, 990.0F);
    EXPECT_FLOAT_EQ(data.barometer.altitude_change, 1.5F);
    EXPECT_NEAR(data.magnetometer.heading, 180.0F, 1e-4F);
}

TEST_F(Sensors, FlippedCameraTurnsMeasurementsAndPose) {
    parameters.image_flip = 1;
    ASSERT_EQ(openLive(), SUCCESS);
    ASSERT_EQ(camera->grab(), SUCCESS);

    const SensorsData image = read(IMAGE);
    const SensorsData current = read(CURRENT);

    EXPECT_EQ(image.imu.vector_3, Vector3<float>(-1, -2, 3));
    const Eigen::Matrix4f expected = samplePose(sampleAt(1)) * kHalfTurnAboutZ;
    EXPECT_LT((matrix(image.imu.pose) - expected).norm(), 1e-5F);
    EXPECT_LT((matrix(current.imu.pose) - expected).norm(), 1e-5F);
}

TEST_F(Sensors, PoseIsCarriedThroughTheImuMountingAndUndoesInEveryConvention) {
    Transform mounting;
    const auto turn = quaternion(Eigen::Quaternionf(Eigen::AngleAxisf(0.7F, Eigen::Vector3f(2, -1, 1).normalized())));
    mounting.setOrientation(Orientation(Vector4<float>(turn[0], turn[1], turn[2], turn[3])));
    mounting.setTranslation(Translation(Vector3<float>(30, -20, 10)));
    factory->grabber.mcu.imuToCamera = mounting;
    factory->grabber.packet.translation = {1, 2, 3};
    parameters.length_unit = UNIT_CENTIMETER;
    const Eigen::Matrix4f toCamera = scaled(matrix(mounting), 0.1F);
    const Eigen::Matrix4f ownPose = toCamera.inverse() * samplePose(factory->grabber.packet) * toCamera;
    for (int convention = 0; convention <= 6; ++convention) {
        SCOPED_TRACE(convention);
        parameters.axis_convention = static_cast<AXIS_CONVENTION>(convention);
        ASSERT_EQ(openLive(), SUCCESS);
        ASSERT_EQ(camera->grab(), SUCCESS);
        Eigen::Matrix4f axes = Eigen::Matrix4f::Identity();
        {
            // Where the application's axes lie in the camera's, read back from vectors.
            for (int axis = 0; axis < 3; ++axis) {
                IMUPacket unit = factory->grabber.packet;
                unit.vector_1 = {};
                unit.vector_1[static_cast<std::size_t>(axis)] = 1.0F;
                std::swap(unit, factory->grabber.packet);
                ASSERT_EQ(camera->grab(), SUCCESS);
                const Vector3<float> seen = read(IMAGE).imu.vector_3;
                axes.block<3, 1>(0, axis) << seen[0], seen[1], seen[2];
                std::swap(unit, factory->grabber.packet);
            }
            ASSERT_EQ(camera->grab(), SUCCESS);
        }
        const Eigen::Matrix4f undone = axes.inverse() * matrix(read(IMAGE).imu.pose) * axes;
        EXPECT_LT((undone - ownPose).norm(), 1e-4F);
        EXPECT_NEAR(std::abs(axes.determinant()), 1.0F, 1e-6F);
    }
}

TEST_F(Sensors, CurrentPoseTurnsThroughTheMountingAndKeepsItsTranslation) {
    Transform mounting;
    mounting.setOrientation(Orientation(Vector4<float>(0, 0, std::sin(kPi / 4), std::cos(kPi / 4))));
    factory->grabber.mcu.imuToCamera = mounting;
    IMUPacket sample = sampleAt(9);
    sample.orientation = {std::sin(0.1F), 0, 0, std::cos(0.1F)};
    sample.translation = {1, 2, 3};
    sample.sync_count = 1;
    factory->grabber.mcu.poses = {sample};
    ASSERT_EQ(openLive(), SUCCESS);

    const SensorsData data = read(CURRENT);

    const Orientation orientation = data.imu.pose.getOrientation();
    EXPECT_NEAR(orientation[1], -std::sin(0.1F), 1e-6F) << "x of the IMU is -y of the camera";
    EXPECT_EQ(data.imu.pose.getTranslation()[2], 3.0F);
    EXPECT_EQ(data.synced_with_image, 1);
}

TEST_F(Sensors, MetadataReferenceGivesThePoseOfTheFrame) {
    rlxrw::rlxSampleMetadata metadata{};
    Transform pose;
    pose.setOrientation(Orientation(Vector4<float>(0.5F, 0.5F, 0.5F, 0.5F)));
    pose.setTranslation(Translation(Vector3<float>(1.0F, 2.0F, 3.0F)));
    rlxrw::setPose(metadata, pose);
    factory->rlx.metadata = metadata;
    ASSERT_EQ(openFile(), SUCCESS);
    const SensorsData recorded = read(static_cast<TIME_REFERENCE>(3));
    EXPECT_TRUE(recorded.imu.is_available);
    EXPECT_EQ(recorded.imu.pose.getTranslation()[1], 2.0F);
    EXPECT_FLOAT_EQ(recorded.imu.pose.getOrientation()[3], 0.5F);

    ASSERT_EQ(camera->close(), SUCCESS);
    parameters.input = {};
    ASSERT_EQ(openLive(), SUCCESS);
    for (const int reference : {3, 9}) {
        const SensorsData live = read(static_cast<TIME_REFERENCE>(reference));
        EXPECT_FALSE(live.imu.is_available) << reference;
        EXPECT_EQ(live.imu.pose, Transform());
    }
}

TEST_F(Sensors, RateIsExactForEvenSamplesAndWaitsForTheSecondOne) {
    constexpr uint64_t kStep = 3'906'250;
    ASSERT_EQ(openLive(), SUCCESS);
    SensorsData data;
    data.imu.measured_rate = -5.0F;
    for (uint64_t i = 0; i < 50; ++i) {
        factory->grabber.mcu.poses = {sampleAt(1'000'000'000 + i * kStep)};
        ASSERT_EQ(camera->getSensorsData(data, CURRENT), SUCCESS);
        ASSERT_EQ(camera->getSensorsData(data, CURRENT), SUCCESS) << "an old sample changes nothing";
        if (i == 0) {
            EXPECT_EQ(data.imu.measured_rate, 0.0F);
        } else {
            EXPECT_NEAR(data.imu.measured_rate, 256.0F, 0.001F);
        }
    }
}

TEST_F(Sensors, BatchHoldsEveryPacketOfTheFrameAsForTheImage) {
    factory->grabber.mcu.batch = {sampleAt(10), sampleAt(20), sampleAt(30)};
    parameters.image_flip = 1;
    ASSERT_EQ(openLive(), SUCCESS);
    std::vector<SensorsData> batch;
    EXPECT_EQ(camera->getSensorsDataBatch(batch), SUCCESS);
    EXPECT_TRUE(batch.empty());
    ASSERT_EQ(camera->grab(), SUCCESS);

    ASSERT_EQ(camera->getSensorsDataBatch(batch), SUCCESS);

    ASSERT_EQ(batch.size(), 3U);
    EXPECT_EQ(batch[2].imu.timestamp, 30U);
    EXPECT_EQ(batch[1].imu.vector_1, read(IMAGE).imu.vector_1);
    EXPECT_EQ(batch[1].imu.pose, read(IMAGE).imu.pose);
}

// The three angles of a pose as atan2 and asin of a quaternion that is not normalised.
Eigen::Vector3d angles(const Eigen::Vector4d& q) {
    const double w = q[0];
    const double x = q[1];
    const double y = q[2];
    const double z = q[3];
    return {std::atan2(2 * (x * w - y * z), 1 - 2 * (x * x + z * z)),
            std::atan2(2 * (y * w - x * z), 1 - 2 * (y * y + z * z)), std::asin(2 * (x * y + z * w))};
}

TEST(PoseCovariance, AgreesWithANumericJacobian) {
    std::mt19937 random(7);
    std::normal_distribution<float> normal;
    for (int round = 0; round < 200; ++round) {
        const Eigen::Quaternionf q =
            Eigen::Quaternionf(normal(random), normal(random), normal(random), normal(random)).normalized();
        if (std::abs(q.x() * q.y() + q.z() * q.w()) > 0.47F) {
            continue;
        }
        IMUPacket sample;
        const Eigen::Matrix4f root = Eigen::Matrix4f::NullaryExpr([&] { return 0.01F * normal(random); });
        const Eigen::Matrix4f covariance = root * root.transpose();
        for (int i = 0; i < 16; ++i) {
            sample.orientation_covariance[static_cast<std::size_t>(i)] = covariance(i / 4, i % 4);
        }
        Transform pose;
        const auto stored = quaternion(q);
        pose.setOrientation(Orientation(Vector4<float>(stored[0], stored[1], stored[2], stored[3])));
        const Orientation used = pose.getOrientation();
        const Eigen::Vector4d at(used[3], used[0], used[1], used[2]);
        Eigen::Matrix<double, 3, 4> jacobian;
        for (int i = 0; i < 4; ++i) {
            constexpr double kStep = 1e-6;
            const Eigen::Vector4d step = kStep * Eigen::Vector4d::Unit(i);
            jacobian.col(i) = (angles(at + step) - angles(at - step)) / (2 * kStep);
        }
        const Eigen::Matrix3d expected = jacobian * covariance.cast<double>() * jacobian.transpose();

        const Matrix3f actual = poseCovariance(sample, Eigen::Matrix3f::Identity(), pose);

        for (std::size_t i = 0; i < 9; ++i) {
            const double value = expected(static_cast<int>(i / 3), static_cast<int>(i % 3));
            EXPECT_NEAR(actual(i / 3, i % 3), value, 1e-3 * expected.norm()) << round;
        }
    }
}

TEST(PoseCovariance, HasOneAngleAtThePole) {
    IMUPacket sample;
    for (std::size_t i = 0; i < 4; ++i) {
        sample.orientation_covariance[i * 5] = 1.0F;
    }
    Transform pose;
    pose.setOrientation(Orientation(Vector4<float>(0.5F, 0.5F, 0.5F, 0.5F)));

    const Matrix3f covariance = poseCovariance(sample, Eigen::Matrix3f::Identity(), pose);

    EXPECT_EQ(covariance(0, 0), 0.0F);
    EXPECT_EQ(covariance(2, 2), 0.0F);
    EXPECT_NEAR(covariance(1, 1), 8.0F, 1e-4F);
}

TEST(PoseCovariance, ReflectionCountsAsTheRotationItNegates) {
    IMUPacket sample;
    for (std::size_t i = 0; i < 16; ++i) {
        sample.orientation_covariance[i] = i % 5 == 0 ? static_cast<float>(i + 1) : 0.0F;
    }
    const Eigen::Matrix3f turn = Eigen::AngleAxisf(0.3F, Eigen::Vector3f::UnitY()).toRotationMatrix();
    EXPECT_EQ(poseCovariance(sample, turn, Transform()), poseCovariance(sample, -turn, Transform()));
}

}  // namespace
}  // namespace oru
