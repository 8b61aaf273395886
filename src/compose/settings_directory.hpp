#pragma once

#include <string>

namespace oru {

/// Where an ordinary user's calibration files lie, with "/" at its end, made when missing; empty without a home.
[[nodiscard]] std::string userSettingsDirectory();

/// A settings path as the core takes it: a directory that exists gets the "/" that it lacks; anything else is a prefix
/// and stays.
[[nodiscard]] std::string asPrefix(const std::string& settingsPath);

/// Why no file can be stored under a prefix; empty when one can.
[[nodiscard]] std::string storingDefect(const std::string& prefix);

/// Copies the calibration files that lie under a prefix into a directory, 64 at most.
void copyCalibrations(const std::string& prefix, const std::string& directory);

}  // namespace oru
