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

/// Fetches a text over HTTP, HTTPS or from a file: address. Blocks at most `limit` in all, takes at most
/// kCalibrationTextLimitBytes, follows at most five redirections (to HTTP and HTTPS only).
[[nodiscard]] Download downloadText(const std::string& address, std::chrono::milliseconds limit = kDownloadLimit);

/// What fetches a text, as downloadText does.
using DownloadText = Download (*)(const std::string& address, std::chrono::milliseconds limit);

}  // namespace oru
