#pragma once

#include <optional>
#include <string>

#include "koruone/output/calibration_formats.hpp"
#include "shared/exit_status.hpp"

namespace koruone {

/// Prints one size of a calibration file as another program reads it; a size of 0: the largest that the file has.
ExitStatus printCalibrationAs(const oru::CalibrationFile& file, CalibrationFormat format, const oru::Resolution& size);

struct ImportOptions {
    std::string from;
    std::string directory;  ///< ends with "/"
    uint32_t serial = 0;
    std::optional<int> model;
    bool overwrite = false;
};

/// Makes SN<serial>.conf of another program's file, for every size of the camera.
ExitStatus importCalibration(const ImportOptions& options);

}  // namespace koruone
