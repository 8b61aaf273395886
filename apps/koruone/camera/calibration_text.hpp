#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace koruone {

/// A calibration document: its values under "SECTION:key" in lower case, and the file it came from, if any.
struct CalibrationText {
    std::string path;
    std::map<std::string, std::string> values;

    [[nodiscard]] bool empty() const { return values.empty(); }
};

struct CalibrationDifference {
    std::string key;
    std::string file;     ///< "nothing" when the file lacks it
    std::string factory;  ///< "nothing" when the factory's lacks it
};

/// Reads one file; empty when it cannot be read or holds no value.
CalibrationText readCalibration(const std::string& path);
/// The file that open() finds for a camera: in `directory` (a prefix) or the system's settings directory.
CalibrationText loadCalibration(const std::string& directory, int serialNumber);
/// What the attached camera itself carries; empty when it is not attached.
CalibrationText factoryCalibration(int serialNumber);

/// The values in which a file differs from the factory's, numbers compared as numbers.
std::vector<CalibrationDifference> compareCalibrations(const CalibrationText& file, const CalibrationText& factory);

}  // namespace koruone
