#include <utility>

#include "oru_koruone/input_operations.hpp"
#include "oru_koruone/report.hpp"
#include "oru_koruone/settings_kinds.hpp"

namespace oru {
ERROR_CODE CameraOneImpl::setCameraSettings(VIDEO_SETTINGS setting, int value) {
    ORU_RETURN_IF_CLOSED(INVALID_CALL);
    if (!isIntSetting(setting)) {
        return INVALID_PARAMETER;
    }
    const bool automatic = value == kAutomaticValue;
    return input().write_setting(*this, setting, value, automatic);
}

String CameraOneImpl::getControlRefusal() {
    ORU_RETURN_IF_CLOSED(String());
    return input().control_refusal(*this);
}

ERROR_CODE CameraOneImpl::setCameraSettings(VIDEO_SETTINGS setting, int min, int max) {
    ORU_RETURN_IF_CLOSED(INVALID_CALL);
    if (const ERROR_CODE refusal = rangeRefusal(setting); refusal != SUCCESS) {
        return refusal;
    }
    if (!grabber) {
        return FAILURE;
    }
    const bool automatic = min == kAutomaticValue && max == kAutomaticValue;
    (void)grabber->setGrabberSettingsValue(setting, std::pair(min, max), automatic);
    return SUCCESS;
}

ERROR_CODE CameraOneImpl::setCameraSettings(VIDEO_SETTINGS setting, Rect roi, bool reset) {
    ORU_RETURN_IF_CLOSED(INVALID_CALL);
    if (!input().has_controls) {
        return INVALID_CALL;
    }
    return setting == AEC_AGC_ROI ? input().write_region(*this, roi, reset) : INVALID_PARAMETER;
}

}  // namespace oru
