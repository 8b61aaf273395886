#pragma once

#include <string>

namespace koruone {

/// Where calibration files lie when no --settings is given: $XDG_DATA_HOME or ~/.local/share, then "/koru/settings/".
/// The current directory's when neither is known.
std::string defaultSettingsPath();

}  // namespace koruone
