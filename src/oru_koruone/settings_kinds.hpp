#pragma once

#include "oru/controls.hpp"

namespace oru {

/// Whether the operations of one int take the control; the device judges a number that belongs to none.
constexpr bool isIntSetting(VIDEO_SETTINGS setting) {
    return !isKind(setting, ControlKind::REGION) && !isKind(setting, ControlKind::RANGE);
}

/// Whether the control's last written value counts as known. What only the camera's own link reads is asked of it.
constexpr bool isCachedSetting(const Control& control) {
    return control.kind == ControlKind::VALUE && control.read_from == ControlInputs::LIVE_AND_STREAM;
}

/// The factor that a value of SHARPNESS stands for, as the writing operations work it out.
constexpr float sharpnessFactorOf(int value) {
    return static_cast<float>(value) * 0.5F + 1.0F;
}

}  // namespace oru
