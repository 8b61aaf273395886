#include <Eigen/Geometry>
#include <Eigen/LU>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>

#include "collaborators/kit_functions.hpp"
#include "oru_koruone/imu_frame.hpp"
#include "oru_koruone/input_operations.hpp"
#include "oru_koruone/report.hpp"

namespace oru {
namespace {

constexpr TIME_REFERENCE kMetadataReference{3};
constexpr float kDegreesPerRadian = 57.295776F;
constexpr int32_t kUnusableHeading = 3;  // and the state after it
constexpr double kNsPerSecond = 1e9;

using Location = SensorsData::TemperatureData::SENSOR_LOCATION;

Vector3<float> rotated(const Eigen::Matrix3f& rotation, const std::array<float, 3>& v) {
    const Eigen::Vector3f result = rotation * Eigen::Vector3f(v[0], v[1], v[2]);
    return {result.x(), result.y(), result.z()};
}

Matrix3f rotatedVariances(const Eigen::Matrix3f& rotation, const std::array<float, 3>& v) {
    const Eigen::Matrix3f covariance = rotation * Eigen::Vector3f(v[0], v[1], v[2]).asDiagonal() * rotation.transpose();
    Matrix3f result;
    for (std::size_t row = 0; row < 3; ++row) {
        for (std::size_t column = 0; column < 3; ++column) {
            result(row, column) = covariance(static_cast<int>(row), static_cast<int>(column));
        }
    }
    return result;
}

Transform toTransform(const Eigen::Matrix4f& matrix) {
    Transform transform;
    cvtMatrix4f(matrix, transform);
    return transform;
}

void clear(SensorsData& data) {
    data.barometer.is_available = false;
    data.magnetometer.is_available = false;
    data.imu.is_available = false;
    data.temperature.temperature_map.clear();
    data.imu.pose = Transform();
}

/// Availability and times of what every sample carries.
void markAvailable(SensorsData& data, const IMUPacket& sample) {
    data.magnetometer.timestamp = sample.magnetometer_timestamp;
    data.magnetometer.is_available = sample.magnetometer_available;
    data.imu.is_available = true;
    data.imu.timestamp = sample.imu_timestamp;
}

void fillCommon(SensorsData& data, const IMUPacket& sample) {
    data.barometer = {sample.barometer_available, sample.barometer_timestamp, sample.pressure,
                      sample.relative_altitude};
    auto& temperatures = data.temperature.temperature_map;
    if (std::isfinite(sample.imu_temperature)) {
        temperatures[Location::SENSOR_LOCATION_IMU] = sample.imu_temperature;
    }
    if (sample.barometer_available) {
        temperatures[Location::SENSOR_LOCATION_BAROMETER] = sample.barometer_temperature;
    }
    if (sample.extra_temperatures_present) {
        temperatures[Location::SENSOR_LOCATION_2] = sample.extra_temperatures[0];
        temperatures[Location::SENSOR_LOCATION_3] = sample.extra_temperatures[1];
    }
    data.sample_state = sample.sample_state;
    data.magnetometer.heading = sample.heading * kDegreesPerRadian;
    data.magnetometer.heading_status = sample.heading_state;
    const bool unusable = sample.heading_state == kUnusableHeading || sample.heading_state == kUnusableHeading + 1;
    data.magnetometer.heading_error = unusable ? -1.0F : sample.heading_accuracy;
}

}  // namespace

ERROR_CODE CameraOneImpl::getSensorsData(SensorsData& data, TIME_REFERENCE reference) {
    ORU_RETURN_IF_CLOSED(FAILURE);
    const bool givesCurrent = input().gives_current_sample(*this);
    if (reference == CURRENT && !givesCurrent) {
        return INVALID_PARAMETER;
    }
    if (imuSource == INPUT_MODE_NONE) {
        return SENSORS_NOT_PRESENT;
    }
    return processSensorsData(data, coordinateTransform, reference);
}

ERROR_CODE CameraOneImpl::processSensorsData(SensorsData& data, Eigen::Matrix4f& coordinate, TIME_REFERENCE reference) {
    clear(data);
    IMUPacket sample;
    if (reference == IMAGE) {
        readImageSample(data, sample);
    } else if (reference == CURRENT) {
        if (const ERROR_CODE read = readCurrentSample(data, sample); read != SUCCESS) {
            return read;
        }
    } else if (reference == kMetadataReference) {
        readMetadataSample(data, sample);
    }
    fillCommon(data, sample);
    measureImuRate(data, sample.imu_timestamp);
    changeFrame(data, sample, coordinate);
    return SUCCESS;
}

void CameraOneImpl::readImageSample(SensorsData& data, IMUPacket& sample) {
    const Eigen::Matrix4f toCamera = scaled(imuToCamera(), unitFactor);
    {
        const MutexLock lock(imuMutex);
        sample = currentImu;
        data.imu.pose = toTransform(toCamera.inverse() * (imuPoseMatrix * toCamera));
    }
    data.synced_with_image = 1;
    markAvailable(data, sample);
}

ERROR_CODE CameraOneImpl::readCurrentSample(SensorsData& data, IMUPacket& sample) {
    {
        const MutexLock lock(imuMutex);
        Eigen::Matrix4f toCamera = Eigen::Matrix4f::Identity();
        if (const ERROR_CODE fetched = fetchCurrentSample(sample, toCamera); fetched != SUCCESS) {
            return fetched;
        }
        toCamera = scaled(toCamera, unitFactor);
        const std::array<float, 3> translation = sample.translation;
        sample.translation = {};
        storePose(toCamera.inverse() * (samplePose(sample) * toCamera), sample);
        sample.translation = translation;
    }
    data.synced_with_image = sample.sync_count > 0 ? 1 : 0;
    if (imageFlipped) {
        storePose(samplePose(sample) * kHalfTurnAboutZ, sample);
    }
    data.imu.pose = toTransform(samplePose(sample));
    markAvailable(data, sample);
    return SUCCESS;
}

/// The newest sample of the open input, with the IMU-to-camera pose where the input gives it for this purpose.
ERROR_CODE CameraOneImpl::fetchCurrentSample(IMUPacket& sample, Eigen::Matrix4f& imuToCameraPose) {
    return input().fetch_current_sample(*this, sample, imuToCameraPose);
}

/// The pose that came with the frame's metadata. Without a source the sample stays zero and the pose identity.
void CameraOneImpl::readMetadataSample(SensorsData& data, IMUPacket& sample) {
    bool found = false;
    {
        const MutexLock lock(imuMutex);
        found = input().fetch_metadata_sample(*this, sample);
    }
    if (!found) {
        sample = {};
        return;
    }
    IMUPacket pose;
    pose.orientation = sample.metadata_orientation;
    pose.translation = sample.metadata_translation;
    data.imu.pose = toTransform(samplePose(pose));
    markAvailable(data, sample);
}

/// Exponential average of the instantaneous rates, corrected for its start. One sensor caller at a time.
void CameraOneImpl::measureImuRate(SensorsData& data, uint64_t timestamp) {
    if (imuRateLastTimestamp == 0) {
        imuRateLastTimestamp = timestamp;
    } else if (imuRateLastTimestamp < timestamp) {
        const auto seconds = static_cast<float>(static_cast<double>(timestamp - imuRateLastTimestamp) / kNsPerSecond);
        const double rate = 1.0 / static_cast<double>(seconds);
        ++imuRateCount;
        imuRateAverage = rate * (1.0 - imuRateSmoothing) + imuRateSmoothing * imuRateAverage;
        imuRateEstimate = imuRateAverage / (1.0 - std::pow(imuRateSmoothing, static_cast<double>(imuRateCount)));
        data.imu.measured_rate = static_cast<float>(imuRateEstimate);
        imuRateLastTimestamp = timestamp;
    }
    if (data.imu.measured_rate < 0.0F) {
        data.imu.measured_rate = 0.0F;
    }
}

/// Into the application's axes: the pose by conjugation, the measurements by rotation.
void CameraOneImpl::changeFrame(SensorsData& data, const IMUPacket& sample, const Eigen::Matrix4f& coordinate) const {
    const Eigen::Matrix4f inverse = coordinate.inverse();
    Eigen::Matrix4f pose;
    cvtMatrix4f(data.imu.pose, pose);
    data.imu.pose = toTransform(inverse * pose * coordinate);
    const Eigen::Matrix4f change = imageFlipped ? Eigen::Matrix4f(inverse * kHalfTurnAboutZ) : inverse;
    const Eigen::Matrix3f rotation = change.topLeftCorner<3, 3>();
    data.imu.vector_1 = rotated(rotation, sample.vector_3);
    data.imu.vector_2 = rotated(rotation, sample.vector_4);
    data.imu.vector_3 = rotated(rotation, sample.vector_1);
    data.imu.vector_4 = rotated(rotation, sample.vector_2);
    data.magnetometer.field_1 = rotated(rotation, sample.magnetic_vector_1);
    data.magnetometer.field_2 = rotated(rotation, sample.magnetic_vector_2);
    data.imu.covariance_1 = rotatedVariances(rotation, sample.variances_a);
    data.imu.covariance_2 = rotatedVariances(rotation, sample.variances_b);
    data.imu.pose_covariance = poseCovariance(sample, rotation, data.imu.pose);
}

ERROR_CODE CameraOneImpl::getSensorsDataBatch(std::vector<SensorsData>& batch) {
    ORU_RETURN_IF_CLOSED(INVALID_CALL);
    batch.clear();
    if (imuSource == INPUT_MODE_NONE) {
        return SENSORS_NOT_PRESENT;
    }
    const Eigen::Matrix4f toCamera = scaled(imuToCamera(), unitFactor);
    const MutexLock lock(imuMutex);
    batch.resize(frameImuPackets.size());
    for (std::size_t i = 0; i < batch.size(); ++i) {
        const IMUPacket& sample = frameImuPackets[i];
        Eigen::Matrix4f pose = samplePose(sample);
        if (imageFlipped) {
            pose = pose * kHalfTurnAboutZ;
        }
        SensorsData& data = batch[i];
        data.imu.pose = toTransform(toCamera.inverse() * (pose * toCamera));
        data.imu.measured_rate = static_cast<float>(imuRateEstimate);
        data.synced_with_image = sample.sync_count > 0 ? 1 : 0;
        markAvailable(data, sample);
        fillCommon(data, sample);
        changeFrame(data, sample, coordinateTransform);
    }
    return SUCCESS;
}

}  // namespace oru
