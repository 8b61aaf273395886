#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "oru/settings.hpp"

namespace oru {

/// What a control holds.
enum class ControlKind : uint8_t {
    VALUE,       ///< one int
    WRITE_ONLY,  ///< one int that no input gives back
    REGION,      ///< a Rect
    RANGE,       ///< two ints, minimum and maximum
};

/// Through which inputs a control is reached. A recorded file has none.
enum class ControlInputs : uint8_t {
    NONE,
    LIVE,             ///< the live camera alone
    LIVE_AND_STREAM,  ///< also the sending camera; a write there needs the sender's control key
};

/// One control of the camera.
struct Control {
    VIDEO_SETTINGS number = SETTING_0;
    std::string_view name;
    ControlKind kind = ControlKind::VALUE;
    ControlInputs read_from = ControlInputs::LIVE_AND_STREAM;
    ControlInputs written_to = ControlInputs::LIVE_AND_STREAM;
    /// The control that switches this one to automatic, if any. A manual value takes it out of the automatic.
    std::optional<VIDEO_SETTINGS> automatic_switch = std::nullopt;
};

/// The value that asks for the automatic one; of a range, both of its ends.
inline constexpr int kAutomaticValue = -1;

/// Every control, in the order of its number, which counts from 0 without a gap.
inline constexpr std::array kControls{
    Control{.number = SETTING_0, .name = "SETTING_0"},
    Control{.number = SETTING_1, .name = "SETTING_1"},
    Control{.number = SETTING_2, .name = "SETTING_2"},
    Control{.number = SETTING_3, .name = "SETTING_3"},
    Control{.number = SHARPNESS, .name = "SHARPNESS"},
    Control{.number = SETTING_5, .name = "SETTING_5"},
    Control{.number = GAIN, .name = "GAIN", .automatic_switch = AEC_AGC},
    Control{.number = EXPOSURE, .name = "EXPOSURE", .automatic_switch = AEC_AGC},
    Control{.number = AEC_AGC, .name = "AEC_AGC"},
    Control{.number = AEC_AGC_ROI, .name = "AEC_AGC_ROI", .kind = ControlKind::REGION},
    Control{.number = SETTING_10, .name = "SETTING_10", .automatic_switch = SETTING_10_AUTO},
    Control{.number = SETTING_10_AUTO, .name = "SETTING_10_AUTO"},
    Control{
        .number = SETTING_12, .name = "SETTING_12", .kind = ControlKind::WRITE_ONLY, .read_from = ControlInputs::NONE},
    Control{.number = GMSL_SETTING_13,
            .name = "GMSL_SETTING_13",
            .read_from = ControlInputs::LIVE,
            .automatic_switch = AEC_AGC},
    Control{.number = GMSL_SETTING_14,
            .name = "GMSL_SETTING_14",
            .read_from = ControlInputs::LIVE,
            .automatic_switch = AEC_AGC},
    Control{.number = GMSL_SETTING_15,
            .name = "GMSL_SETTING_15",
            .read_from = ControlInputs::LIVE,
            .automatic_switch = AEC_AGC},
    Control{.number = RANGE_SETTING_16,
            .name = "RANGE_SETTING_16",
            .kind = ControlKind::RANGE,
            .read_from = ControlInputs::LIVE,
            .written_to = ControlInputs::LIVE},
    Control{.number = RANGE_SETTING_17,
            .name = "RANGE_SETTING_17",
            .kind = ControlKind::RANGE,
            .read_from = ControlInputs::LIVE,
            .written_to = ControlInputs::LIVE},
    Control{.number = RANGE_SETTING_18,
            .name = "RANGE_SETTING_18",
            .kind = ControlKind::RANGE,
            .read_from = ControlInputs::LIVE,
            .written_to = ControlInputs::LIVE},
    Control{.number = GMSL_SETTING_19, .name = "GMSL_SETTING_19", .read_from = ControlInputs::LIVE},
    Control{.number = GMSL_SETTING_20, .name = "GMSL_SETTING_20", .read_from = ControlInputs::LIVE},
};

/// Null for a number that belongs to no control.
constexpr const Control* findControl(VIDEO_SETTINGS number) {
    const bool known = number >= 0 && static_cast<std::size_t>(number) < kControls.size();
    return known ? &kControls[static_cast<std::size_t>(number)] : nullptr;
}

/// By its name, in any case; null when there is none.
constexpr const Control* findControl(std::string_view name) {
    const auto upper = [](char letter) {
        return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
    };
    for (const Control& control : kControls) {
        bool same = control.name.size() == name.size();
        for (std::size_t i = 0; same && i < name.size(); ++i) {
            same = control.name[i] == upper(name[i]);
        }
        if (same) {
            return &control;
        }
    }
    return nullptr;
}

constexpr bool isKind(VIDEO_SETTINGS number, ControlKind kind) {
    const Control* control = findControl(number);
    return control != nullptr && control->kind == kind;
}

/// How many numbers a control of the kind holds: 4 of a region (x, y, width, height), 2 of a range, else 1.
constexpr std::size_t valueCount(ControlKind kind) {
    switch (kind) {
        case ControlKind::REGION:
            return 4;
        case ControlKind::RANGE:
            return 2;
        default:
            return 1;
    }
}

}  // namespace oru
