#pragma once

#include <cstddef>
#include <string>

namespace oru {

inline constexpr std::size_t kCalibrationTextLimitBytes = std::size_t{1} << 20;

/// How sure it is that a text arrived whole.
enum class Completeness {
    KNOWN,   ///< its length was announced and met
    UNKNOWN  ///< it ended where the sender closed: every section and coefficient must be there, and a last line end
};

/// Why a text is no calibration of this camera; empty when it is one: an INI text with MISC:Sensor_ID 1 or 2, at
/// least one CAM_ section of that sensor, in each of these fx and fy above 0 and a finite cx and cy, a DISTO
/// section with finite coefficients, and no MISC:Serial_Number of another camera.
std::string calibrationDefect(const std::string& text, int serialNumber, Completeness completeness);

}  // namespace oru
