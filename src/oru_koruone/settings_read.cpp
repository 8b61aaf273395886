#include <tuple>

#include "oru_koruone/CameraOneImpl.hpp"
#include "oru_koruone/report.hpp"
#include "oru_koruone/settings_kinds.hpp"

namespace oru {

ERROR_CODE CameraOneImpl::getCameraSettings(VIDEO_SETTINGS setting, int& value) {
    ORU_RETURN_IF_CLOSED(INVALID_CALL);
    value = 0;
    if (!isIntSetting(setting)) {
        return INVALID_PARAMETER;
    }
    if (setting == SHARPNESS) {
        return readSharpness(value);
    }
    const Control* control = findControl(setting);
    if (control == nullptr || control->kind == ControlKind::WRITE_ONLY) {
        return FAILURE;
    }
    return isCachedSetting(*control) ? readCachedSetting(setting, value) : readGmslSetting(setting, value);
}

/// The device's value on a live camera; elsewhere the factor that the file or the sender gave.
ERROR_CODE CameraOneImpl::readSharpness(int& value) {
    value = static_cast<int>(2.0 * (static_cast<double>(sharpnessFactor) - 1.0));
    const bool live = inputMode == INPUT_MODE_NONE || inputMode == INPUT_MODE_LIVE;
    if (live && grabber && grabber->inputType() == GMSL) {
        value = grabber->getGrabberSettingsValue(SHARPNESS);
    }
    return SUCCESS;
}

ERROR_CODE CameraOneImpl::readGmslSetting(VIDEO_SETTINGS setting, int& value) {
    if (!grabber || grabber->inputType() != GMSL) {
        return INVALID_PARAMETER;
    }
    value = grabber->getGrabberSettingsValue(setting);
    return SUCCESS;
}

ERROR_CODE CameraOneImpl::readCachedSetting(VIDEO_SETTINGS setting, int& value) {
    if (inputMode == INPUT_MODE_STREAM && streamInput) {
        value = streamInput->getGrabberSettingsValue(setting);
        return SUCCESS;
    }
    const bool live = inputMode == INPUT_MODE_NONE || inputMode == INPUT_MODE_LIVE;
    if (!live || !grabber) {
        return INVALID_CALL;
    }
    const auto entry = settingsCache.find(setting);
    const bool known = entry != settingsCache.end() && entry->second >= 0;
    value = known ? entry->second : grabber->getGrabberSettingsValue(setting);
    return SUCCESS;
}

/// Why a range control cannot be reached on this input; SUCCESS when it can.
ERROR_CODE CameraOneImpl::rangeRefusal(VIDEO_SETTINGS setting) const {
    if (inputMode == INPUT_MODE_RECORDED) {
        return INVALID_CALL;
    }
    if (!isKind(setting, ControlKind::RANGE)) {
        return INVALID_PARAMETER;
    }
    return inputMode == INPUT_MODE_LIVE ? SUCCESS : NOT_SUPPORTED;
}

ERROR_CODE CameraOneImpl::getCameraSettings(VIDEO_SETTINGS setting, int& min, int& max) {
    ORU_RETURN_IF_CLOSED(INVALID_CALL);
    if (const ERROR_CODE refusal = rangeRefusal(setting); refusal != SUCCESS) {
        return refusal;
    }
    if (!grabber) {
        return SUCCESS;
    }
    std::tie(min, max) = grabber->getGrabberSettingsRangeValue(setting);
    return min < 0 && max < 0 ? INVALID_PARAMETER : SUCCESS;
}

ERROR_CODE CameraOneImpl::getCameraSettings(VIDEO_SETTINGS setting, Rect& roi) {
    ORU_RETURN_IF_CLOSED(INVALID_CALL);
    roi = {};
    // Again: the camera may have been closed since.
    ORU_RETURN_IF_CLOSED(INVALID_CALL);
    if (inputMode == INPUT_MODE_RECORDED) {
        return INVALID_CALL;
    }
    if (setting != AEC_AGC_ROI) {
        return INVALID_PARAMETER;
    }
    if (inputMode == INPUT_MODE_STREAM && streamInput) {
        (void)streamInput->getGrabberSettingsValue(AEC_AGC_ROI, 0, roi);
        return SUCCESS;
    }
    const bool live = inputMode == INPUT_MODE_NONE || inputMode == INPUT_MODE_LIVE;
    return live && grabber && grabber->getROIforAECAGC(0, roi) == 0 ? SUCCESS : FAILURE;
}

}  // namespace oru
