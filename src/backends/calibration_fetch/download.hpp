#pragma once

#include <chrono>
#include <string>

#include "oru/calibration.hpp"

namespace oru {

inline constexpr std::chrono::milliseconds kDownloadLimit{5000};

struct Download {
    std::string text;    ///< empty when it failed
    std::string defect;  ///< why it failed, one phrase; empty when it did not
    Completeness completeness = Completeness::KNOWN;
};

/// The address to ask for this camera's file, from the base that the user set; see makeCalibrationFetch.
std::string calibrationAddress(const std::string& base, int serialNumber);

/// Whether the file in this address bears another camera's name: "SN", another number, ".conf".
bool namesAnotherCamera(const std::string& address, int serialNumber);

/// Fetches a text over HTTP, HTTPS or from a file: address. Blocks at most `limit` in all, takes at most
/// kCalibrationTextLimitBytes, follows at most five redirections (to HTTP and HTTPS only).
[[nodiscard]] Download downloadText(const std::string& address, std::chrono::milliseconds limit = kDownloadLimit);

}  // namespace oru
