#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include "koruone/output/calibration_formats.hpp"

namespace koruone {
namespace {

constexpr std::uintmax_t kMostBytes = std::uintmax_t{1} << 20U;

// What is missing or wrong is thrown here, as the library does itself, and becomes a phrase in one place.

YAML::Node need(const YAML::Node& parent, const char* key) {
    const YAML::Node child = parent[key];
    if (!child) {
        throw std::runtime_error(std::string(key) + " is missing");
    }
    return child;
}

std::vector<double> numbersOf(const YAML::Node& list, const char* key) {
    auto numbers = list.as<std::vector<double>>();
    if (!std::all_of(numbers.begin(), numbers.end(), [](double number) { return std::isfinite(number); })) {
        throw std::runtime_error(std::string(key) + " holds what is no number");
    }
    return numbers;
}

/// The coefficients in their common order; more than twelve, a tilted sensor, only when those are zero.
void takeDistortion(const std::vector<double>& numbers, oru::Lens& lens) {
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (i < lens.distortion.size()) {
            lens.distortion[i] = numbers[i];
        } else if (numbers[i] != 0) {
            throw std::runtime_error("a tilted sensor cannot be expressed");
        }
    }
}

oru::Resolution sizeOf(const std::vector<double>& numbers) {
    if (numbers.size() != 2 || !(numbers[0] >= 1) || !(numbers[1] >= 1) || numbers[0] > 16384 || numbers[1] > 16384) {
        throw std::runtime_error("the image has no possible size");
    }
    return {static_cast<uint64_t>(numbers[0]), static_cast<uint64_t>(numbers[1])};
}

SizedLens ofKalibr(const YAML::Node& camera) {
    const auto model = need(camera, "camera_model").as<std::string>();
    const auto distortion = camera["distortion_model"].as<std::string>("none");
    if (model != "pinhole" || (distortion != "radtan" && distortion != "none")) {
        throw std::runtime_error("a " + model + " camera with " + distortion + " distortion cannot be expressed");
    }
    const std::vector<double> pinhole = numbersOf(need(camera, "intrinsics"), "intrinsics");
    if (pinhole.size() != 4) {
        throw std::runtime_error("intrinsics must be fx, fy, cx, cy");
    }
    SizedLens result{{pinhole[0], pinhole[1], pinhole[2], pinhole[3], {}},
                     sizeOf(numbersOf(need(camera, "resolution"), "resolution"))};
    if (distortion == "radtan") {
        takeDistortion(numbersOf(need(camera, "distortion_coeffs"), "distortion_coeffs"), result.lens);
    }
    return result;
}

/// OpenCV's and ROS's files name the same things alike.
SizedLens ofMatrices(const YAML::Node& root) {
    const auto model = root["distortion_model"].as<std::string>("plumb_bob");
    if (model != "plumb_bob" && model != "rational_polynomial") {
        throw std::runtime_error(model + " distortion cannot be expressed");
    }
    const std::vector<double> matrix = numbersOf(need(need(root, "camera_matrix"), "data"), "camera_matrix");
    if (matrix.size() != 9 || matrix[1] != 0 || matrix[3] != 0) {
        throw std::runtime_error("camera_matrix must be fx 0 cx, 0 fy cy, 0 0 1");
    }
    SizedLens result{{matrix[0], matrix[4], matrix[2], matrix[5], {}},
                     sizeOf({need(root, "image_width").as<double>(), need(root, "image_height").as<double>()})};
    takeDistortion(numbersOf(need(need(root, "distortion_coefficients"), "data"), "distortion_coefficients"),
                   result.lens);
    return result;
}

}  // namespace

std::optional<SizedLens> readForeignCalibration(const std::string& path, std::string& error) {
    std::error_code missing;
    if (!std::filesystem::is_regular_file(path, missing) || std::filesystem::file_size(path, missing) > kMostBytes) {
        error = "it is no file, or too large";
        return std::nullopt;
    }
    try {
        const YAML::Node root = YAML::LoadFile(path);
        if (!root.IsMap()) {
            throw std::runtime_error("it is no calibration in YAML");
        }
        SizedLens result = root["cam0"] ? ofKalibr(root["cam0"]) : ofMatrices(root);
        if (!result.lens.isUsable()) {
            throw std::runtime_error("its focal length is not positive");
        }
        return result;
    } catch (const std::exception& wrong) {
        error = wrong.what();
        return std::nullopt;
    }
}

}  // namespace koruone
