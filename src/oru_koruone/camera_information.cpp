#include <Eigen/LU>
#include <limits>

#include "collaborators/kit_functions.hpp"
#include "oru_koru/CameraUtils.hpp"
#include "oru_koruone/imu_frame.hpp"
#include "oru_koruone/input_operations.hpp"

namespace oru {
namespace {

constexpr float kDistortionTolerance = 5.0F;
constexpr int kUnturnedSerial = 502;  // recordings of this serial number carry the pose in the application's axes

constexpr float kSamplingRateHz = 400.0F;
constexpr float kAccelerometerRange = 78.48F;  // 8 g in m/s^2
constexpr float kGyroscopeRange = 1000.0F;     // degrees per second
constexpr float kSensorSteps = 32768.0F;

/// Expresses intrinsics for another image size; nothing changes for intrinsics that belong to no size.
void rescale(CameraParameters& parameters, const Resolution& size) {
    if (parameters.image_size.width != 0 && parameters.image_size.height != 0) {
        const float sx = static_cast<float>(size.width) / static_cast<float>(parameters.image_size.width);
        const float sy = static_cast<float>(size.height) / static_cast<float>(parameters.image_size.height);
        parameters.fx *= sx;
        parameters.fy *= sy;
        parameters.cx *= sx;
        parameters.cy *= sy;
    }
    parameters.image_size = size;
}

}  // namespace

CameraDescription CameraOneImpl::getCameraInformation(Resolution size) {
    const Resolution target = checkRequestedResolution(size, imageSize) ? size : imageSize;
    CameraDescription description = cameraInformation;
    description.model = cameraModel;
    description.input_type = input().type;
    CameraModeDescription& configuration = description.configuration;
    rescale(configuration.calibration, target);
    rescale(configuration.raw_calibration, target);
    Resolution viewed = target;
    ComputeRectilinearFoV(configuration.calibration, viewed);
    if (cameraModel == MODEL_MONO_3UM || cameraModel == MODEL_MONO_2UM) {
        ComputeTVDistoFov(configuration.raw_calibration, viewed, kDistortionTolerance);
    }
    describeImu(description);
    SensorsDescription& sensors = description.sensors;
    setSensor(sensors.accelerometer, kSamplingRateHz, 0.00135F, 0.0042F, kAccelerometerRange / kSensorSteps,
              {-kAccelerometerRange, kAccelerometerRange}, METER_PER_SECOND_SQUARED, ACCELEROMETER);
    setSensor(sensors.gyroscope, kSamplingRateHz, 0.004721F, 0.0038F, kGyroscopeRange / kSensorSteps,
              {-kGyroscopeRange, kGyroscopeRange}, DEGREE_PER_SECOND, GYROSCOPE);
    initSensor(sensors.magnetometer);
    initSensor(sensors.barometer);
    return description;
}

/// The IMU-to-camera pose in the application's axes and unit, and the sensors' version.
void CameraOneImpl::describeImu(CameraDescription& description) {
    SensorsDescription& sensors = description.sensors;
    if (imuSource == INPUT_MODE_NONE) {
        sensors.imu_to_camera = {};
        sensors.second_transform = {};
        return;
    }
    Eigen::Matrix4f pose = scaled(imuToCamera(), unitFactor);
    const bool unturned = imuSource == INPUT_MODE_RECORDED && readRecordedHeader().serial_number == kUnturnedSerial;
    if (!unturned) {
        pose = coordinateTransform.inverse() * pose * coordinateTransform;
    }
    cvtMatrix4f(pose, sensors.imu_to_camera);
    if (imuSource == INPUT_MODE_LIVE) {
        if (grabber) {
            KORUmcu* mcu = grabber->getMCU();
            sensors.firmware_version = mcu == nullptr ? 0U : mcu->getMCUFirmwareVersion();
        }
        return;
    }
    sensors.firmware_version = rlxReader ? static_cast<uint32_t>(rlxReader->getIMUDataVersion()) : 0U;
    if (imuSource == INPUT_MODE_RECORDED) {
        description.configuration.fps = recordedFps();
    }
}

/// As the source of the IMU packets gives it, in millimetres; identity when it gives none.
Eigen::Matrix4f CameraOneImpl::imuToCamera() const {
    return operationsOf(imuSource).imu_to_camera(*this);
}

void CameraOneImpl::initSensor(SensorParameters& p) {
    constexpr float kNone = std::numeric_limits<float>::quiet_NaN();
    p = {SENSOR_TYPE_NONE, kNone, kNone, {kNone, kNone}, kNone, kNone, SENSORS_UNIT_NONE, false};
}

void CameraOneImpl::setSensor(SensorParameters& p, float sampling_rate, float noise_density, float random_walk,
                              float resolution, Vector2<float> range, SENSORS_UNIT unit, SENSOR_TYPE type) {
    p = {type, resolution, sampling_rate, range, noise_density, random_walk, unit, true};
}

}  // namespace oru
