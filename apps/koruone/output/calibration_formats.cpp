#include "koruone/output/calibration_formats.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <span>

namespace koruone {
namespace {

constexpr std::size_t kPlumbBob = 5;
constexpr std::size_t kRational = 8;
constexpr std::size_t kRadtan = 4;
constexpr std::size_t kEvery = 12;

std::string listOf(std::span<const double> numbers) {
    std::string text;
    for (const double number : numbers) {
        text += fmt::format("{}{}", text.empty() ? "" : ", ", number);
    }
    return "[" + text + "]";
}

std::string matrixOf(const char* key, const char* tag, int rows, int columns, const char* type,
                     std::span<const double> numbers) {
    return fmt::format("{}:{}\n  rows: {}\n  cols: {}\n{}  data: {}\n", key, tag, rows, columns, type, listOf(numbers));
}

std::string openCvText(const SizedLens& camera) {
    const oru::Lens& lens = camera.lens;
    const double matrix[] = {lens.fx, 0, lens.cx, 0, lens.fy, lens.cy, 0, 0, 1};
    return fmt::format("%YAML:1.0\n---\nimage_width: {}\nimage_height: {}\n", camera.size.width, camera.size.height) +
           matrixOf("camera_matrix", " !!opencv-matrix", 3, 3, "  dt: d\n", matrix) +
           matrixOf("distortion_coefficients", " !!opencv-matrix", 1, static_cast<int>(kEvery), "  dt: d\n",
                    lens.distortion);
}

bool hasBeyond(const oru::Lens& lens, std::size_t kept) {
    return std::any_of(lens.distortion.begin() + static_cast<std::ptrdiff_t>(kept), lens.distortion.end(),
                       [](double term) { return term != 0; });
}

std::string rosText(const SizedLens& camera, const std::string& name) {
    const oru::Lens& lens = camera.lens;
    const std::size_t kept = hasBeyond(lens, kPlumbBob) ? kRational : kPlumbBob;
    const double matrix[] = {lens.fx, 0, lens.cx, 0, lens.fy, lens.cy, 0, 0, 1};
    const double projection[] = {lens.fx, 0, lens.cx, 0, 0, lens.fy, lens.cy, 0, 0, 0, 1, 0};
    const double identity[] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    return fmt::format("image_width: {}\nimage_height: {}\ncamera_name: {}\n", camera.size.width, camera.size.height,
                       name) +
           matrixOf("camera_matrix", "", 3, 3, "", matrix) +
           fmt::format("distortion_model: {}\n", kept == kPlumbBob ? "plumb_bob" : "rational_polynomial") +
           matrixOf("distortion_coefficients", "", 1, static_cast<int>(kept), "",
                    std::span(lens.distortion).first(kept)) +
           matrixOf("rectification_matrix", "", 3, 3, "", identity) +
           matrixOf("projection_matrix", "", 3, 4, "", projection);
}

std::string kalibrText(const SizedLens& camera) {
    const oru::Lens& lens = camera.lens;
    const double pinhole[] = {lens.fx, lens.fy, lens.cx, lens.cy};
    return fmt::format(
        "cam0:\n  camera_model: pinhole\n  intrinsics: {}\n  distortion_model: radtan\n  distortion_coeffs: {}\n"
        "  resolution: [{}, {}]\n",
        listOf(pinhole), listOf(std::span(lens.distortion).first(kRadtan)), camera.size.width, camera.size.height);
}

std::size_t coefficientsOf(CalibrationFormat format) {
    return format == CalibrationFormat::OPENCV ? kEvery : (format == CalibrationFormat::ROS ? kRational : kRadtan);
}

}  // namespace

std::optional<CalibrationText> writeCalibrationAs(CalibrationFormat format, const SizedLens& camera,
                                                  const std::string& name) {
    const auto fit = oru::fitLens(camera.lens, camera.size, static_cast<int>(coefficientsOf(format)));
    if (!fit) {
        return std::nullopt;
    }
    const SizedLens held{fit->lens, camera.size};
    CalibrationText result{{}, fit->max_pixels};
    switch (format) {
        case CalibrationFormat::OPENCV:
            result.text = openCvText(held);
            break;
        case CalibrationFormat::ROS:
            result.text = rosText(held, name);
            break;
        case CalibrationFormat::KALIBR:
            result.text = kalibrText(held);
            break;
    }
    return result;
}

}  // namespace koruone
