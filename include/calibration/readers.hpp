#pragma once

#include <string>

#include "calibration/ConfManager.hpp"
#include "oru/types.hpp"
#include "utils/private_export.hpp"

namespace oru {

/// "SN<serial>.conf".
std::string calibrationFileName(int serial_number);
/// The text with its first "~" replaced by HOME; unchanged when HOME is not set.
std::string expandHome(std::string text);

/// The file that the search tries first: the directory with its home expanded, taken as a prefix; when it is empty the
/// system settings directory.
std::string calibrationPath(std::string directory, int serial_number);

/// Makes the system settings directory and its root where they are missing; whether it is there shows at the next use.
void makeSystemSettingsDirectory();

/// Looks for the camera's calibration in `directory` (a prefix: it ends with "/") and then in the system settings
/// directory, and loads it. The outcome is `conf.is_open`; `conf.path` names the last file tried.
ORU_PRIVATE_API void openConfFile(std::string directory, int serial_number, ConfManager& conf);

/// fx, fy, cx, cy and six coefficients of one CAM_ section; the rest is zero.
CameraParameters readCamera(std::string section, ConfManager& conf);

/// Overwrites all twelve distortion coefficients from one section; a missing key gives 0.
void readCameraFullDisto(std::string section, ConfManager& conf, CameraParameters& params);

/// focal_length_mm = pixel pitch * fx * read-out factor / 1000; 0 for a model or a height that is not known.
void setLensLength(CameraParameters& params, Resolution resolution, MODEL model);

namespace detail {
/// "/usr/local/koru": root of the system settings directory. Only tests change it.
std::string& settingsRoot();
}  // namespace detail

}  // namespace oru
