#include "koruone/camera/control_access.hpp"

#include <fmt/format.h>

#include <chrono>
#include <map>

#include "shared/interrupt.hpp"
#include "shared/option_helpers.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

constexpr std::chrono::milliseconds kConfirmPause{50};
constexpr std::chrono::seconds kConfirmPatience{1};

bool isSwitch(oru::VIDEO_SETTINGS setting) {
    for (const Control& control : oru::kControls) {
        if (control.automatic_switch == setting) {
            return true;
        }
    }
    return false;
}

bool isLive(oru::CameraOne& camera) {
    return camera.getCameraInformation().input_type == oru::GMSL;
}

/// A number that only the live camera's own link reads.
bool isOfLinkOnly(const Control& control) {
    return control.kind == ControlKind::VALUE && control.read_from == oru::ControlInputs::LIVE;
}

/// Writes, and asks whether a stream's sender carried it out: the write itself succeeds when it was sent.
oru::ERROR_CODE writeThrough(oru::CameraOne& camera, const Control& control, const ControlValue& value,
                             std::string& refusal) {
    const oru::ERROR_CODE code = writeControl(camera, control, value);
    refusal = code == oru::SUCCESS ? camera.getControlRefusal().get() : "";
    return code;
}

/// Reads until the control holds the value, a second at most (a stream's sender answers late). False: it does not;
/// `found` is what it holds.
bool confirm(oru::CameraOne& camera, const Control& control, const ControlValue& wanted, ControlValue& found) {
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

ControlState readState(oru::CameraOne& camera, const Control& control) {
    ControlState state;
    state.control = &control;
    ControlValue value;
    if (isReadable(camera, control) && readControl(camera, control, value) == oru::SUCCESS) {
        state.value = value;
    }
    int low = 0;
    int high = 0;
    if (camera.getCameraSettingsRange(control.number, low, high) == oru::SUCCESS) {
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
    if (!state.supported || !state.value || control.automatic_switch ||
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
        if (state.default_value && isSwitch(state.control->number)) {
            automatic[state.control->number] = state.default_value->front() != 0;
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

std::string whyOutsideImage(oru::CameraOne& camera, const ControlValue& region) {
    const oru::Resolution image = camera.getCameraInformation().configuration.resolution;
    const auto fits = [](int64_t from, int64_t length, uint64_t side) {
        return from >= 0 && length > 0 && static_cast<uint64_t>(from) < side &&
               static_cast<uint64_t>(length) <= side - static_cast<uint64_t>(from);
    };
    const bool inside = fits(region[0], region[2], image.width) && fits(region[1], region[3], image.height);
    return inside ? ""
                  : fmt::format("the region {} (X Y WIDTH HEIGHT) does not lie within the image of {}x{}",
                                valueText(region), image.width, image.height);
}

/// What is wrong with a value that the control cannot hold; empty when it can, and when nobody tells its range.
std::string whyOutside(oru::CameraOne& camera, const Control& control, const ControlValue& value) {
    if (value.empty()) {
        return "";
    }
    if (control.kind == ControlKind::REGION) {
        return whyOutsideImage(camera, value);
    }
    int low = 0;
    int high = 0;
    if (camera.getCameraSettingsRange(control.number, low, high) != oru::SUCCESS) {
        return "";
    }
    const bool ordered = value.front() <= value.back();
    const bool inside = ordered && value.front() >= low && value.back() <= high;
    return inside ? ""
                  : fmt::format("{} takes {}from {} to {}, not {}", control.name,
                                value.size() == 2 ? "a minimum and a maximum " : "", low, high, valueText(value));
}

}  // namespace

const char* kindName(ControlKind kind) {
    switch (kind) {
        case ControlKind::VALUE:
            return "value";
        case ControlKind::WRITE_ONLY:
            return "write only";
        case ControlKind::REGION:
            return "region";
        case ControlKind::RANGE:
            return "range";
    }
    return "";
}

bool isReadable(oru::CameraOne& camera, const Control& control) {
    return control.kind != ControlKind::WRITE_ONLY &&
           (!isOfLinkOnly(control) || camera.getCameraInformation().input_type != oru::INPUT_TYPE_STREAM);
}

oru::ERROR_CODE readControl(oru::CameraOne& camera, const Control& control, ControlValue& value) {
    if (control.kind == ControlKind::REGION) {
        oru::Rect region;
        const oru::ERROR_CODE code = camera.getCameraSettings(control.number, region);
        value = {static_cast<int64_t>(region.x), static_cast<int64_t>(region.y), static_cast<int64_t>(region.width),
                 static_cast<int64_t>(region.height)};
        return code;
    }
    if (control.kind == ControlKind::RANGE) {
        int low = 0;
        int high = 0;
        const oru::ERROR_CODE code = camera.getCameraSettings(control.number, low, high);
        value = {low, high};
        return code;
    }
    int number = 0;
    const oru::ERROR_CODE code = camera.getCameraSettings(control.number, number);
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
        return camera.setCameraSettings(control.number, region, automatic);
    }
    if (control.kind == ControlKind::RANGE) {
        const int low = automatic ? oru::kAutomaticValue : static_cast<int>(value.front());
        const int high = automatic ? oru::kAutomaticValue : static_cast<int>(value.back());
        return camera.setCameraSettings(control.number, low, high);
    }
    return camera.setCameraSettings(control.number, automatic ? oru::kAutomaticValue : static_cast<int>(value.front()));
}

std::vector<ControlState> describeControls(oru::CameraOne& camera) {
    std::vector<ControlState> states;
    for (const Control& control : oru::kControls) {
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
        for (const Control& control : oru::kControls) {
            const bool wanted = isSwitch(control.number) == switches;
            const bool offered = control.kind == ControlKind::REGION || camera.isCameraSettingSupported(control.number);
            if (!wanted || !offered) {
                continue;
            }
            std::string refusal;
            const oru::ERROR_CODE code = writeThrough(camera, control, {}, refusal);
            // A stream offers the ranges to be seen, not to be written.
            if ((code != oru::SUCCESS && code != oru::NOT_SUPPORTED) || !refusal.empty()) {
                refused.emplace_back(control.name);
            }
        }
    }
    return refused;
}

ExitStatus setControl(oru::CameraOne& camera, const Control& control, const ControlValue& value) {
    if (const std::string wrong = whyOutside(camera, control, value); !wrong.empty()) {
        complain("{}.", wrong);
        return EXIT_USAGE;
    }
    std::string refusal;
    const std::string wanted = value.empty() ? "auto" : valueText(value);
    const oru::ERROR_CODE code = writeThrough(camera, control, value, refusal);
    if (code != oru::SUCCESS) {
        complain(code, fmt::format("cannot set {} to {}", control.name, wanted));
        return EXIT_FAILED;
    }
    if (!refusal.empty()) {
        complain("{} was not set to {}: {}.", control.name, wanted, refusal);
        return EXIT_FAILED;
    }
    ControlValue found;
    if (value.empty() || !isReadable(camera, control) || confirm(camera, control, value, found)) {
        return EXIT_OK;
    }
    complain("the camera did not take {} {}: it holds {}; see 'koruone controls list' for what it offers.",
             control.name, valueText(value), found.empty() ? "nothing" : valueText(found));
    return EXIT_FAILED;
}

std::optional<ControlValue> parseValue(const Control& control, const std::vector<std::string>& texts) {
    ControlValue value;
    if (texts.size() == 1 && texts.front() == "auto") {
        return value;
    }
    for (const std::string& text : texts) {
        const auto number = parseNumber<int>(text);
        if (!number || (control.kind == ControlKind::REGION && *number < 0)) {
            return std::nullopt;
        }
        value.push_back(*number);
    }
    if (value.size() != oru::valueCount(control.kind)) {
        return std::nullopt;
    }
    return value == ControlValue(value.size(), oru::kAutomaticValue) ? ControlValue() : value;
}

const char* valueForm(const Control& control) {
    switch (control.kind) {
        case ControlKind::RANGE:
            return "takes a minimum and a maximum, or auto";
        case ControlKind::REGION:
            return "takes x, y, width and height, or auto";
        default:
            return "takes one whole number, or auto";
    }
}

std::optional<ControlAssignment> parseAssignment(const std::string& text, std::string& error) {
    const std::size_t equals = text.find('=');
    const Control* control = oru::findControl(text.substr(0, equals));
    if (equals == std::string::npos || control == nullptr) {
        error = "'" + text + "' is not NAME=VALUE with a name that 'koruone controls list' shows";
        return std::nullopt;
    }
    const std::optional<ControlValue> value = parseValue(*control, CLI::detail::split(text.substr(equals + 1), ','));
    if (!value) {
        error = fmt::format("{} {}", control->name, valueForm(*control));
        return std::nullopt;
    }
    return ControlAssignment{control, *value};
}

std::string valueText(const ControlValue& value) {
    return fmt::format("{}", fmt::join(value, value.size() == 2 ? " .. " : " "));
}

}  // namespace koruone
