#pragma once

#include <string>

namespace oru {

/// The address to ask for this camera's file, from the base that the user set; see makeCalibrationFetch.
std::string calibrationAddress(const std::string& base, int serialNumber);

/// Whether the file in this address bears another camera's name: "SN", another number, ".conf".
bool namesAnotherCamera(const std::string& address, int serialNumber);

}  // namespace oru
