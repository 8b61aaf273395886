#pragma once

#include <cstdint>
#include <map>

#include "oru/geometry.hpp"

namespace oru {

/// For which moment a time or a sensor sample is asked.
enum TIME_REFERENCE : int32_t {
    IMAGE = 0,    ///< when the current image was taken
    CURRENT = 1,  ///< the moment of the call
};

enum SENSOR_TYPE : int32_t {
    ACCELEROMETER = 0,
    GYROSCOPE = 1,
    SENSOR_TYPE_NONE = 4,
};

enum SENSORS_UNIT : int32_t {
    METER_PER_SECOND_SQUARED = 0,
    DEGREE_PER_SECOND = 1,
    SENSORS_UNIT_NONE = 6,
};

/// One sensor's characteristics; numbers are NaN for a sensor that is absent.
struct SensorParameters {
    SENSOR_TYPE type = SENSOR_TYPE_NONE;
    float resolution = 0.0F;     ///< smallest step, in `unit`
    float sampling_rate = 0.0F;  ///< hertz
    Vector2<float> range;        ///< minimum and maximum, in `unit`
    float noise_density = 0.0F;  ///< `unit` per square root of hertz
    float random_walk = 0.0F;
    SENSORS_UNIT unit = SENSORS_UNIT_NONE;
    bool is_available = false;
};

/// One sensor sample in the application's coordinate system and unit.
/// The guide says which vector is what for the virtual camera; the camera only changes their frame.
struct SensorsData {
    struct BarometerData {
        bool is_available = false;
        uint64_t timestamp = 0;  ///< nanoseconds
        float pressure = 0.0F;
        float altitude_change = 0.0F;
    };
    struct TemperatureData {
        enum SENSOR_LOCATION : int32_t {
            SENSOR_LOCATION_IMU,
            SENSOR_LOCATION_BAROMETER,
            SENSOR_LOCATION_2,
            SENSOR_LOCATION_3,
        };
        std::map<SENSOR_LOCATION, float> temperature_map;  ///< degrees Celsius; a probe without a value is absent
    };
    struct MagnetometerData {
        bool is_available = false;
        uint64_t timestamp = 0;  ///< nanoseconds
        Vector3<float> field_1;
        Vector3<float> field_2;
        float heading = 0.0F;  ///< degrees
        int32_t heading_status = 0;
        float heading_error = 0.0F;  ///< -1 when the heading is not usable
    };
    struct ImuData {
        bool is_available = false;
        uint64_t timestamp = 0;  ///< nanoseconds
        Transform pose;
        Matrix3f pose_covariance;  ///< of the three angles of the pose, radians squared
        Vector3<float> vector_1;
        Vector3<float> vector_2;
        Vector3<float> vector_3;
        Vector3<float> vector_4;
        Matrix3f covariance_1;
        Matrix3f covariance_2;
        float measured_rate = 0.0F;  ///< hertz
    };

    BarometerData barometer;
    TemperatureData temperature;
    MagnetometerData magnetometer;
    ImuData imu;
    int32_t sample_state = 0;
    int32_t synced_with_image = 0;  ///< 0 or 1
};

}  // namespace oru
