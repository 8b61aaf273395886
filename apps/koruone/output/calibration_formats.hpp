#pragma once

#include <optional>
#include <string>

#include "oru/calibration.hpp"

namespace koruone {

/// How other programs write a camera's calibration:
///   OPENCV   the YAML of cv::FileStorage, as OpenCV's calibration sample writes it: all twelve coefficients
///   ROS      the YAML of camera_calibration_parsers: plumb_bob (k1, k2, p1, p2, k3) or rational_polynomial (k1 to k6)
///   KALIBR   a camchain of one camera: pinhole, radtan (k1, k2, p1, p2)
/// Pixel centres are whole numbers in all of them.
enum class CalibrationFormat { OPENCV, ROS, KALIBR };

/// A lens at the size of image that it belongs to.
struct SizedLens {
    oru::Lens lens;
    oru::Resolution size;
};

struct CalibrationText {
    std::string text;
    double fitted_within = 0.0;  ///< pixels; 0: the format holds the lens as it is
};

/// Of a lens with more coefficients than the format has, the closest one that it has; empty when there is none.
[[nodiscard]] std::optional<CalibrationText> writeCalibrationAs(CalibrationFormat format, const SizedLens& camera,
                                                                const std::string& name);

/// Reads a file of any of the formats.
/// @param error one phrase when the result is empty
[[nodiscard]] std::optional<SizedLens> readForeignCalibration(const std::string& path, std::string& error);

}  // namespace koruone
