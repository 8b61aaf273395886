#include "control_access.hpp"

#include <fmt/format.h>

#include <chrono>
#include <map>

#include "interrupt.hpp"

namespace koruone {
namespace {

constexpr std::chrono::milliseconds kConfirmPause{50};
constexpr std::chrono::seconds kConfirmPatience{1};

bool isSwitch(oru::VIDEO_SETTINGS setting) {
    for (const Control& control : controls()) {
        if (control.automatic_switch == setting) {
            return true;
        }
    }
    return false;
}

bool isWritable(const Control& control) {
    return control.kind != ControlKind::READ_ONLY;
}

bool isLive(oru::CameraOne& camera) {
    return camera.getCameraInformation().input_type == oru::GMSL;
}

ControlState readState(oru::CameraOne& camera, const Control& control) {
    ControlState state;
    state.control = &control;
    ControlValue value;
    if (readControl(camera, control, value) == oru::SUCCESS) {
        state.value = value;
    }
    int low = 0;
    int high = 0;
    if (camera.getCameraSettingsRange(control.setting, low, high) == oru::SUCCESS) {
        state.range = {low, high};
    }
    state.supported = control.kind == ControlKind::REGION ? state.value.has_value() : state.range.has_value();
    if (control.automatic_switch) {
        int on = 0;
        if (camera.getCameraSettings(*control.automatic_switch, on) == oru::SUCCESS) {
            state.automatic = on != 0;
        }
    }
    return state;
}

/// Asks the device for the default and puts the value back.
void probeDefault(oru::CameraOne& camera, ControlState& state) {
    const Control& control = *state.control;
    ControlValue value;
    if (!state.supported || !state.value || control.automatic_switch || !isWritable(control) ||
        writeControl(camera, control, {}) != oru::SUCCESS) {
        return;
    }
    if (readControl(camera, control, value) == oru::SUCCESS) {
        state.default_value = value;
    }
    (void)writeControl(camera, control, *state.value);
}

void copySwitchDefaults(std::vector<ControlState>& states) {
    std::map<oru::VIDEO_SETTINGS, bool> automatic;
    for (const ControlState& state : states) {
        if (state.default_value && isSwitch(state.control->setting)) {
            automatic[state.control->setting] = state.default_value->front() != 0;
        }
    }
    for (ControlState& state : states) {
        if (state.control->automatic_switch) {
            const auto found = automatic.find(*state.control->automatic_switch);
            if (found != automatic.end()) {
                state.default_automatic = found->second;
            }
        }
    }
}

}  // namespace

oru::ERROR_CODE readControl(oru::CameraOne& camera, const Control& control, ControlValue& value) {
    if (control.kind == ControlKind::REGION) {
        oru::Rect region;
        const oru::ERROR_CODE code = camera.getCameraSettings(control.setting, region);
        value = {static_cast<int64_t>(region.x), static_cast<int64_t>(region.y), static_cast<int64_t>(region.width),
                 static_cast<int64_t>(region.height)};
        return code;
    }
    if (control.kind == ControlKind::RANGE) {
        int low = 0;
        int high = 0;
        const oru::ERROR_CODE code = camera.getCameraSettings(control.setting, low, high);
        value = {low, high};
        return code;
    }
    int number = 0;
    const oru::ERROR_CODE code = camera.getCameraSettings(control.setting, number);
    value = {number};
    return code;
}

oru::ERROR_CODE writeControl(oru::CameraOne& camera, const Control& control, const ControlValue& value) {
    const bool automatic = value.empty();
    if (control.kind == ControlKind::REGION) {
        oru::Rect region;
        if (value.size() == 4) {
            region = {static_cast<uint64_t>(value[0]), static_cast<uint64_t>(value[1]), static_cast<uint64_t>(value[2]),
                      static_cast<uint64_t>(value[3])};
        }
        return camera.setCameraSettings(control.setting, region, automatic);
    }
    if (control.kind == ControlKind::RANGE) {
        const int low = automatic ? -1 : static_cast<int>(value.front());
        const int high = automatic ? -1 : static_cast<int>(value.back());
        return camera.setCameraSettings(control.setting, low, high);
    }
    return camera.setCameraSettings(control.setting, automatic ? -1 : static_cast<int>(value.front()));
}

std::vector<ControlState> describeControls(oru::CameraOne& camera) {
    std::vector<ControlState> states;
    for (const Control& control : controls()) {
        states.push_back(readState(camera, control));
    }
    if (isLive(camera)) {
        for (ControlState& state : states) {
            probeDefault(camera, state);
        }
        copySwitchDefaults(states);
    }
    return states;
}

std::vector<std::string> resetControls(oru::CameraOne& camera) {
    std::vector<std::string> refused;
    for (const bool switches : {false, true}) {
        for (const Control& control : controls()) {
            const bool wanted = isWritable(control) && isSwitch(control.setting) == switches;
            const bool offered =
                control.kind == ControlKind::REGION || camera.isCameraSettingSupported(control.setting);
            if (wanted && offered && writeControl(camera, control, {}) != oru::SUCCESS) {
                refused.emplace_back(control.name);
            }
        }
    }
    return refused;
}

bool confirmControl(oru::CameraOne& camera, const Control& control, const ControlValue& wanted, ControlValue& found) {
    const auto deadline = std::chrono::steady_clock::now() + kConfirmPatience;
    for (;;) {
        if (readControl(camera, control, found) == oru::SUCCESS && found == wanted) {
            return true;
        }
        const auto next = std::chrono::steady_clock::now() + kConfirmPause;
        if (next > deadline || !sleepUntil(next)) {
            return false;
        }
    }
}

std::string valueText(const ControlValue& value) {
    return fmt::format("{}", fmt::join(value, value.size() == 2 ? " .. " : " "));
}

}  // namespace koruone
