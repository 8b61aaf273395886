#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "oru/Lens.hpp"

// Data sets in the EuRoC MAV layout: M. Burri et al., "The EuRoC micro aerial vehicle datasets", International Journal
// of Robotics Research, 2016. Used of it: mav0/cam0/data.csv, cam0/sensor.yaml, imu0/data.csv and, of imu0/sensor.yaml,
// T_BS. A sensor's T_BS takes its coordinates to the body's, in metres.
namespace oru::virtual_bus {

struct EurocImage {
    uint64_t time_ns = 0;
    std::string file;
};

struct EurocSample {
    uint64_t time_ns = 0;
    std::array<double, 3> rate{};   ///< rad/s
    std::array<double, 3> force{};  ///< m/s^2
};

struct EurocCamera {
    int width = 0;
    int height = 0;
    double rate_hz = 0.0;
    Lens lens;
    std::array<double, 16> pose{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};  ///< T_BS of the camera, row by row
    std::array<double, 16> imu_pose{1, 0, 0, 0, 0, 1, 0, 0,
                                    0, 0, 1, 0, 0, 0, 0, 1};  ///< T_BS of the inertial sensor, as a rule the body
};

// Each returns false with a sentence that names the line or key.
[[nodiscard]] bool parseEurocImages(std::string_view csv, std::vector<EurocImage>& images, std::string& error);
[[nodiscard]] bool parseEurocCamera(std::string_view yaml, EurocCamera& camera, std::string& error);
/// Of imu0/sensor.yaml: the pose of the sensor, when the text tells one.
[[nodiscard]] bool parseEurocImu(std::string_view yaml, EurocCamera& camera, std::string& error);

/// One line of imu0/data.csv; false for one that is no sample, such as the heading.
[[nodiscard]] bool parseEurocSample(std::string_view line, EurocSample& sample);

/// The folder that holds cam0, or nothing when a path is no data set.
[[nodiscard]] std::string eurocRoot(const std::string& path);

}  // namespace oru::virtual_bus
