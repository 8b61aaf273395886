#pragma once

#include <array>
#include <cstdint>

namespace oru {

/// One inertial sample with what was measured beside it. The producer defines what the vectors mean.
struct IMUPacket {
    bool valid = false;
    uint64_t imu_timestamp = 0;  ///< nanoseconds, on the image's clock
    uint64_t barometer_timestamp = 0;
    uint64_t magnetometer_timestamp = 0;
    int32_t sync_count = 0;              ///< greater than 0: taken at an image
    std::array<float, 4> orientation{};  ///< x, y, z, w
    std::array<float, 3> translation{};
    std::array<float, 3> vector_1{};
    std::array<float, 3> vector_2{};
    std::array<float, 3> vector_3{};
    std::array<float, 3> vector_4{};
    std::array<float, 3> variances_a{};
    std::array<float, 3> variances_b{};
    std::array<float, 16> orientation_covariance{};  ///< row by row, components ordered w, x, y, z
    uint8_t sample_state = 0;
    float imu_temperature = 0.0F;  ///< degrees Celsius
    bool magnetometer_available = false;
    bool barometer_available = false;
    std::array<float, 3> magnetic_vector_1{};
    std::array<float, 3> magnetic_vector_2{};
    int32_t heading_state = 0;
    float heading_accuracy = 0.0F;
    float heading = 0.0F;  ///< radians
    float barometer_temperature = 0.0F;
    float pressure = 0.0F;
    float reserved = 0.0F;
    float relative_altitude = 0.0F;
    bool extra_temperatures_present = false;
    std::array<float, 2> extra_temperatures{};
    std::array<float, 4> metadata_orientation{};  ///< x, y, z, w
    std::array<float, 3> metadata_translation{};

    friend bool operator==(const IMUPacket&, const IMUPacket&) = default;
};

/// Calibration of an IMU: four blocks of nine floats. The neutral value is two pairs of (zeros, 3 x 3 identity).
struct ImuCalibration {
    std::array<float, 36> values{0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1,
                                 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1};

    friend bool operator==(const ImuCalibration&, const ImuCalibration&) = default;
};

}  // namespace oru
