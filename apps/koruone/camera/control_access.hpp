#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "oru/CameraOne.hpp"
#include "oru/controls.hpp"
#include "shared/exit_status.hpp"

namespace koruone {

using oru::Control;
using oru::ControlKind;

const char* kindName(ControlKind kind);

/// What a control holds: one number, two of a range (minimum, maximum), or four of a region (x, y, width, height).
using ControlValue = std::vector<int64_t>;

/// One control as the camera describes it.
struct ControlState {
    const Control* control = nullptr;
    bool supported = false;
    std::optional<std::array<int, 2>> range;
    std::optional<ControlValue> value;
    std::optional<ControlValue> default_value;
    std::optional<bool> automatic;          ///< of a control that another one switches to automatic
    std::optional<bool> default_automatic;  ///< whether that is its default
};

/// False for the write-only control, and over a stream for those that the camera object asks of its own device.
bool isReadable(oru::CameraOne& camera, const Control& control);
/// Reads a control of any kind.
oru::ERROR_CODE readControl(oru::CameraOne& camera, const Control& control, ControlValue& value);
/// Writes a control of any kind; an empty value asks for the automatic value, the default range or the default region.
oru::ERROR_CODE writeControl(oru::CameraOne& camera, const Control& control, const ControlValue& value);

/// Every control with its range, value and automatic state. Of a live camera also the defaults, which are found by
/// asking for each one and putting the value back.
std::vector<ControlState> describeControls(oru::CameraOne& camera);

/// The automatic value of every supported control, the switches last. Names those that refused.
std::vector<std::string> resetControls(oru::CameraOne& camera);

/// The value that texts give for a control; "auto" or only -1 gives an empty one. Nothing when the control does not
/// take them.
std::optional<ControlValue> parseValue(const Control& control, const std::vector<std::string>& texts);
/// What parseValue takes for the control, as the end of a sentence.
const char* valueForm(const Control& control);

/// Writes a control and, but for an empty value, reads it back. EXIT_USAGE: the value lies outside the control's range
/// or the image; EXIT_FAILED: it did not take. The reason has been said.
ExitStatus setControl(oru::CameraOne& camera, const Control& control, const ControlValue& value);

/// A control and its value from "NAME=VALUE" or "NAME=VALUE,VALUE".
struct ControlAssignment {
    const Control* control = nullptr;
    ControlValue value;
};
/// Nothing, with what is wrong in `error`, for anything else.
std::optional<ControlAssignment> parseAssignment(const std::string& text, std::string& error);

/// "12", "100 .. 5000" or "0 0 1920 1200".
std::string valueText(const ControlValue& value);

}  // namespace koruone
