#include "koruone/runs/imu_record.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace koruone {
namespace {

using oru::SensorsData;

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

struct Column {
    const char* name;
    double (*value)(const SensorsData&);
};

double temperature(const SensorsData& sample, SensorsData::TemperatureData::SENSOR_LOCATION location) {
    const auto found = sample.temperature.temperature_map.find(location);
    return found == sample.temperature.temperature_map.end() ? kNone : static_cast<double>(found->second);
}

double magnetic(const SensorsData& sample, std::size_t axis) {
    return sample.magnetometer.is_available ? static_cast<double>(sample.magnetometer.field_1[axis]) : kNone;
}

double component(const oru::Vector3<float>& vector, std::size_t axis) {
    return static_cast<double>(vector[axis]);
}

double orientation(const SensorsData& sample, std::size_t index) {
    return static_cast<double>(sample.imu.pose.getOrientation()[index]);
}

constexpr std::array kColumns{
    Column{"synced_with_image", [](const SensorsData& s) { return static_cast<double>(s.synced_with_image); }},
    Column{"sample_state", [](const SensorsData& s) { return static_cast<double>(s.sample_state); }},
    Column{"angular_rate_x_deg_s", [](const SensorsData& s) { return component(s.imu.vector_1, 0); }},
    Column{"angular_rate_y_deg_s", [](const SensorsData& s) { return component(s.imu.vector_1, 1); }},
    Column{"angular_rate_z_deg_s", [](const SensorsData& s) { return component(s.imu.vector_1, 2); }},
    Column{"acceleration_x_m_s2", [](const SensorsData& s) { return component(s.imu.vector_2, 0); }},
    Column{"acceleration_y_m_s2", [](const SensorsData& s) { return component(s.imu.vector_2, 1); }},
    Column{"acceleration_z_m_s2", [](const SensorsData& s) { return component(s.imu.vector_2, 2); }},
    Column{"raw_angular_rate_x_deg_s", [](const SensorsData& s) { return component(s.imu.vector_3, 0); }},
    Column{"raw_angular_rate_y_deg_s", [](const SensorsData& s) { return component(s.imu.vector_3, 1); }},
    Column{"raw_angular_rate_z_deg_s", [](const SensorsData& s) { return component(s.imu.vector_3, 2); }},
    Column{"raw_acceleration_x_m_s2", [](const SensorsData& s) { return component(s.imu.vector_4, 0); }},
    Column{"raw_acceleration_y_m_s2", [](const SensorsData& s) { return component(s.imu.vector_4, 1); }},
    Column{"raw_acceleration_z_m_s2", [](const SensorsData& s) { return component(s.imu.vector_4, 2); }},
    Column{"orientation_x", [](const SensorsData& s) { return orientation(s, 0); }},
    Column{"orientation_y", [](const SensorsData& s) { return orientation(s, 1); }},
    Column{"orientation_z", [](const SensorsData& s) { return orientation(s, 2); }},
    Column{"orientation_w", [](const SensorsData& s) { return orientation(s, 3); }},
    Column{"imu_temperature_c",
           [](const SensorsData& s) { return temperature(s, SensorsData::TemperatureData::SENSOR_LOCATION_IMU); }},
    Column{"magnetic_field_x_ut", [](const SensorsData& s) { return magnetic(s, 0); }},
    Column{"magnetic_field_y_ut", [](const SensorsData& s) { return magnetic(s, 1); }},
    Column{"magnetic_field_z_ut", [](const SensorsData& s) { return magnetic(s, 2); }},
    Column{"heading_deg",
           [](const SensorsData& s) {
               return s.magnetometer.is_available ? static_cast<double>(s.magnetometer.heading) : kNone;
           }},
    Column{"pressure_hpa",
           [](const SensorsData& s) {
               return s.barometer.is_available ? static_cast<double>(s.barometer.pressure) : kNone;
           }},
    Column{"altitude_change_m",
           [](const SensorsData& s) {
               return s.barometer.is_available ? static_cast<double>(s.barometer.altitude_change) : kNone;
           }},
};

double degrees(double radians) {
    return radians * 180.0 / std::numbers::pi;
}

/// Angles about x, y and z in degrees, turned in the order z, y, x (the usual roll, pitch and yaw of a unit
/// quaternion).
std::array<double, 3> angles(const oru::Orientation& quaternion) {
    const auto x = static_cast<double>(quaternion[0]);
    const auto y = static_cast<double>(quaternion[1]);
    const auto z = static_cast<double>(quaternion[2]);
    const auto w = static_cast<double>(quaternion[3]);
    return {degrees(std::atan2(2.0 * (w * x + y * z), 1.0 - 2.0 * (x * x + y * y))),
            degrees(std::asin(std::clamp(2.0 * (w * y - z * x), -1.0, 1.0))),
            degrees(std::atan2(2.0 * (w * z + x * y), 1.0 - 2.0 * (y * y + z * z)))};
}

}  // namespace

std::string imuCsvHeader() {
    std::string header = "timestamp_ns";
    for (const Column& column : kColumns) {
        header += fmt::format(",{}", column.name);
    }
    return header + "\n";
}

std::string imuCsvRow(const SensorsData& sample) {
    std::string row = fmt::format("{}", sample.imu.timestamp);
    for (const Column& column : kColumns) {
        const double value = column.value(sample);
        row += std::isfinite(value) ? fmt::format(",{:.9g}", value) : ",";
    }
    return row + "\n";
}

std::vector<PlotPanel> imuPanels() {
    const std::vector<std::string> axes{"x", "y", "z"};
    return {{"Angular rate", "deg/s", axes},
            {"Acceleration, gravity included", "m/s²", axes},
            {"Orientation", "deg", {"about x", "about y", "about z"}}};
}

std::array<double, TimePlot::kMostLines> ImuPlotValues::next(const SensorsData& sample) {
    std::array<double, 3> now = angles(sample.imu.pose.getOrientation());
    for (std::size_t i = 0; i < now.size() && started; ++i) {
        now[i] += 360.0 * std::round((previous[i] - now[i]) / 360.0);
    }
    previous = now;
    started = true;
    const auto& imu = sample.imu;
    return {component(imu.vector_1, 0),
            component(imu.vector_1, 1),
            component(imu.vector_1, 2),
            component(imu.vector_2, 0),
            component(imu.vector_2, 1),
            component(imu.vector_2, 2),
            now[0],
            now[1],
            now[2]};
}

}  // namespace koruone
