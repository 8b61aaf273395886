#include "oru_koruone/input_operations.hpp"
#include "oru_koruone/report.hpp"
#include "oru_koruone/settings_kinds.hpp"

namespace oru {
namespace {

constexpr int kUnknown = -1;

}  // namespace

/// Marks unknown what a write of `setting` may have changed in the device.
void CameraOneImpl::resetCacheSettings(VIDEO_SETTINGS setting, int /*value*/, bool isAuto) {
    for (const Control& control : kControls) {
        if (control.automatic_switch == setting && isCachedSetting(control)) {
            settingsCache[control.number] = kUnknown;
        }
    }
    const Control* written = findControl(setting);
    if (!isAuto && written != nullptr && isCachedSetting(*written) && written->automatic_switch) {
        settingsCache[*written->automatic_switch] = kUnknown;
    }
}

/// Only a known equal value makes a write redundant: -1 marks an unknown one and always reaches the device.
bool CameraOneImpl::isCached(VIDEO_SETTINGS setting, int value) const {
    const auto entry = settingsCache.find(setting);
    return entry != settingsCache.end() && entry->second >= 0 && entry->second == value;
}

bool CameraOneImpl::isOpenForRanges() const {
    ORU_RETURN_IF_CLOSED(false);
    return true;
}

ERROR_CODE CameraOneImpl::getCameraSettingsRange(VIDEO_SETTINGS setting, int& min, int& max) {
    if (!isOpenForRanges() || !input().has_controls) {
        return INVALID_CALL;
    }
    if (setting == AEC_AGC_ROI) {
        return INVALID_PARAMETER;
    }
    return deviceRange(setting, min, max) ? SUCCESS : FAILURE;
}

bool CameraOneImpl::isCameraSettingSupported(VIDEO_SETTINGS setting) {
    if (!isOpenForRanges() || !input().has_controls || setting == AEC_AGC_ROI) {
        return false;
    }
    int min = 0;
    int max = 0;
    return deviceRange(setting, min, max);
}

/// On a stream both devices exist: the grabber is idle and the receiver's answer counts.
bool CameraOneImpl::deviceRange(VIDEO_SETTINGS setting, int& min, int& max) {
    bool known = grabber && grabber->getVideoSettingRange(setting, min, max);
    if (streamInput) {
        known = streamInput->valueRange(setting, min, max);
    }
    return known;
}

}  // namespace oru
