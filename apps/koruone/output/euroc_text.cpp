#include "koruone/output/euroc_text.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <numbers>

namespace koruone {
namespace {

constexpr std::size_t kPlainCoefficients = 4;  // k1, k2, p1, p2
constexpr double kMillimetres = 1000.0;

double radians(double degrees) {
    return degrees * std::numbers::pi / 180.0;
}

/// The camera's place as seen from the inertial sensor, along the camera's axes, in metres.
std::array<double, 3> cameraPosition(const oru::RecordingFacts& recorded) {
    std::array<double, 3> position{};
    if (!recorded.has_imu_to_camera) {
        return position;
    }
    // The matrix takes camera coordinates to the sensor's: its rotation's transpose turns the offset to camera axes.
    const oru::Transform& pose = recorded.imu_to_camera;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        for (std::size_t row = 0; row < 3; ++row) {
            position[axis] += static_cast<double>(pose(row, axis)) * static_cast<double>(pose(row, 3)) / kMillimetres;
        }
    }
    return position;
}

std::string poseText(const std::array<double, 3>& position) {
    return fmt::format(
        "T_BS:\n  cols: 4\n  rows: 4\n  data: [1.0, 0.0, 0.0, {},\n         0.0, 1.0, 0.0, {},\n"
        "         0.0, 0.0, 1.0, {},\n         0.0, 0.0, 0.0, 1.0]\n",
        position[0], position[1], position[2]);
}

std::string lensText(const oru::CameraParameters& lens) {
    const auto& distortion = lens.distortion;
    const bool plain = std::all_of(distortion.begin() + kPlainCoefficients, distortion.end(),
                                   [](double coefficient) { return coefficient == 0.0; });
    const auto end = plain ? distortion.begin() + kPlainCoefficients : distortion.end();
    return fmt::format(
        "camera_model: pinhole\nintrinsics: [{}, {}, {}, {}] # fu, fv, cu, cv\n"
        "distortion_model: {}\ndistortion_coefficients: [{}]\n",
        static_cast<double>(lens.fx), static_cast<double>(lens.fy), static_cast<double>(lens.cx),
        static_cast<double>(lens.cy), plain ? "radial-tangential" : "rational-thin-prism",
        fmt::join(distortion.begin(), end, ", "));
}

std::string noiseText(const char* name, const oru::SensorParameters& sensor, bool degrees, const char* unit) {
    std::string text;
    const std::pair<const char*, float> values[] = {{"noise_density", sensor.noise_density},
                                                    {"random_walk", sensor.random_walk}};
    for (const auto& [kind, value] : values) {
        if (sensor.is_available && std::isfinite(value)) {
            const auto number = static_cast<double>(value);
            fmt::format_to(std::back_inserter(text), "{}_{}: {:.6g} # {}\n", name, kind,
                           degrees ? radians(number) : number, unit);
        }
    }
    return text;
}

}  // namespace

std::string eurocCameraText(const oru::RecordingFacts& recorded, const FrameFacts& facts) {
    std::string text = fmt::format("%YAML:1.0\nsensor_type: camera\ncomment: KORU One {}\n", recorded.serial_number);
    text += poseText(cameraPosition(recorded));
    text += fmt::format("rate_hz: {}\nresolution: [{}, {}]\n", static_cast<double>(facts.fps), facts.size.width,
                        facts.size.height);
    return facts.lens.fx > 0.0F ? text + lensText(facts.lens) : text;
}

std::string eurocInertialText(const FrameFacts& facts) {
    std::string text = "%YAML:1.0\nsensor_type: imu\n" + poseText({});
    if (facts.gyroscope.is_available && std::isfinite(facts.gyroscope.sampling_rate)) {
        text += fmt::format("rate_hz: {}\n", static_cast<double>(facts.gyroscope.sampling_rate));
    }
    text += noiseText("gyroscope", facts.gyroscope, true, "rad / s, per square root of hertz for the density");
    return text +
           noiseText("accelerometer", facts.accelerometer, false, "m / s^2, per square root of hertz for the density");
}

std::string eurocSampleLine(const oru::RecordedSample& sample) {
    const auto& rate = sample.angular_velocity;
    const auto& force = sample.linear_acceleration;
    return fmt::format("{},{},{},{},{},{},{}\n", sample.timestamp, radians(static_cast<double>(rate[0])),
                       radians(static_cast<double>(rate[1])), radians(static_cast<double>(rate[2])), force[0], force[1],
                       force[2]);
}

}  // namespace koruone
