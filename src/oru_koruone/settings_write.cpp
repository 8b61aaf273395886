#include <utility>

#include "oru_koruone/CameraOneImpl.hpp"
#include "oru_koruone/report.hpp"
#include "oru_koruone/settings_kinds.hpp"

namespace oru {
namespace {

constexpr int kDefaultSharpness = 3;

float sharpnessFactorOf(int value) {
    return static_cast<float>(value) * 0.5F + 1.0F;
}

/// Whether an interval lies within a size; a sum that wraps does not.
bool isInside(uint64_t start, uint64_t length, uint64_t size) {
    const uint64_t end = start + length;
    return end >= start && end <= size;
}

}  // namespace

ERROR_CODE CameraOneImpl::setCameraSettings(VIDEO_SETTINGS setting, int value) {
    ORU_RETURN_IF_CLOSED(INVALID_CALL);
    if (!isIntSetting(setting)) {
        return INVALID_PARAMETER;
    }
    const bool automatic = value == kAutomaticValue;
    switch (inputMode) {
        case INPUT_MODE_RECORDED:
            return SUCCESS;
        case INPUT_MODE_STREAM:
            return writeStreamSetting(setting, value, automatic);
        case INPUT_MODE_NONE:
        case INPUT_MODE_LIVE:
            return writeLiveSetting(setting, value, automatic);
        default:
            return INVALID_CALL;
    }
}

ERROR_CODE CameraOneImpl::writeStreamSetting(VIDEO_SETTINGS setting, int value, bool automatic) {
    if (setting == SHARPNESS) {
        const int sent = automatic ? 0 : value;
        sharpnessFactor = sharpnessFactorOf(sent);
        if (streamInput) {
            (void)streamInput->setGrabberSettingsValue(SHARPNESS, sent, false);
        }
        settingsCache[SHARPNESS] = sent;
        return SUCCESS;
    }
    if (streamInput) {
        if (!isCached(setting, value)) {
            (void)streamInput->setGrabberSettingsValue(setting, value, automatic);
        }
        resetCacheSettings(setting, value, automatic);
    }
    settingsCache[setting] = value;
    return SUCCESS;
}

ERROR_CODE CameraOneImpl::writeLiveSetting(VIDEO_SETTINGS setting, int value, bool automatic) {
    if (!grabber) {
        return SUCCESS;
    }
    if (!grabber->valueInRange(setting, value)) {
        return INVALID_PARAMETER;
    }
    if (setting == SHARPNESS && writeLiveSharpness(value, automatic)) {
        return SUCCESS;
    }
    if (!isCached(setting, value)) {
        (void)grabber->setGrabberSettingsValue(setting, value, automatic);
    }
    settingsCache[setting] = value;
    resetCacheSettings(setting, value, automatic);
    return SUCCESS;
}

/// False for a kind of grabber that treats sharpness like any other control.
bool CameraOneImpl::writeLiveSharpness(int value, bool automatic) {
    const INPUT_TYPE type = grabber->inputType();
    if (type != INPUT_TYPE_NONE && type != GMSL) {
        return false;
    }
    int sent = automatic ? kDefaultSharpness : value;
    sharpnessFactor = 1.0F;
    if (type == INPUT_TYPE_NONE) {
        const bool sharperModel = cameraModel == MODEL{2} || cameraModel == MODEL{3};
        if (automatic && sharperModel) {
            sent = kDefaultSharpness + 1;
        }
        sharpnessFactor = sharpnessFactorOf(sent);
    }
    (void)grabber->setGrabberSettingsValue(SHARPNESS, sent, false);
    return true;
}

String CameraOneImpl::getControlRefusal() {
    ORU_RETURN_IF_CLOSED(String());
    return inputMode == INPUT_MODE_STREAM && streamInput ? String(streamInput->controlRefusal()) : String();
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
    if (inputMode == INPUT_MODE_RECORDED) {
        return INVALID_CALL;
    }
    if (setting != AEC_AGC_ROI) {
        return INVALID_PARAMETER;
    }
    if (inputMode == INPUT_MODE_STREAM && streamInput) {
        (void)streamInput->setGrabberSettingsValue(AEC_AGC_ROI, 0, roi, reset);
        return SUCCESS;
    }
    const bool live = inputMode == INPUT_MODE_NONE || inputMode == INPUT_MODE_LIVE;
    if (!live || !grabber) {
        return FAILURE;
    }
    if (reset) {
        return grabber->resetROIforAECAGC(0) == 0 ? SUCCESS : FAILURE;
    }
    if (!isInside(roi.x, roi.width, imageSize.width) || !isInside(roi.y, roi.height, imageSize.height)) {
        return FAILURE;
    }
    return grabber->setROIforAECAGC(0, roi) == 0 ? SUCCESS : FAILURE;
}

}  // namespace oru
