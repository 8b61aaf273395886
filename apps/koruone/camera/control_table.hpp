#pragma once

#include <optional>
#include <span>
#include <string>

#include "oru/settings.hpp"

namespace koruone {

enum class ControlKind { VALUE, WRITE_ONLY, REGION, RANGE };

/// One control of the camera as the tool names it.
struct Control {
    oru::VIDEO_SETTINGS setting;
    const char* name;
    ControlKind kind;
    /// The control that switches this one to automatic, if any.
    std::optional<oru::VIDEO_SETTINGS> automatic_switch;
};

/// Every control, in the order of its number.
std::span<const Control> controls();
/// By its name in any case; null when there is none.
const Control* findControl(const std::string& name);
const char* kindName(ControlKind kind);

}  // namespace koruone
