#include <tuple>

#include "oru_koruone/clamped.hpp"
#include "oru_koruone/input_operations.hpp"
#include "oru_koruone/relaxed.hpp"
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
    return isCachedSetting(*control) ? input().read_setting(*this, setting, value) : readGmslSetting(setting, value);
}

/// The device's value on a live camera; elsewhere the factor that the file or the sender gave.
ERROR_CODE CameraOneImpl::readSharpness(int& value) {
    value = clampedTo<int>(2.0 * (static_cast<double>(loadRelaxed(sharpnessFactor)) - 1.0));
    if (input().has_own_sharpness && grabber && grabber->inputType() == GMSL) {
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

/// Why a range control cannot be reached on this input; SUCCESS when it can.
ERROR_CODE CameraOneImpl::rangeRefusal(VIDEO_SETTINGS setting) const {
    if (!input().has_controls) {
        return INVALID_CALL;
    }
    if (!isKind(setting, ControlKind::RANGE)) {
        return INVALID_PARAMETER;
    }
    return input().has_range_controls ? SUCCESS : NOT_SUPPORTED;
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
    if (!input().has_controls) {
        return INVALID_CALL;
    }
    return setting == AEC_AGC_ROI ? input().read_region(*this, roi) : INVALID_PARAMETER;
}

}  // namespace oru
