#pragma once

// Addresses in messages to the user; a distributor sets them at build time.
#ifndef ORU_INSTALLER_ADDRESS
#define ORU_INSTALLER_ADDRESS "https://koru.example/installer"
#endif
#ifndef ORU_CALIBRATION_ADDRESS
#define ORU_CALIBRATION_ADDRESS "https://koru.example/calibration"
#endif

namespace oru {

inline constexpr const char* kInstallerAddress = ORU_INSTALLER_ADDRESS;
inline constexpr const char* kCalibrationAddress = ORU_CALIBRATION_ADDRESS;

}  // namespace oru
