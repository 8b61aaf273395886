#pragma once

#include "oru/settings.hpp"

namespace oru {

inline bool isRangeSetting(VIDEO_SETTINGS setting) {
    return setting == RANGE_SETTING_16 || setting == RANGE_SETTING_17 || setting == RANGE_SETTING_18;
}

inline bool isGmslSetting(VIDEO_SETTINGS setting) {
    return setting == GMSL_SETTING_13 || setting == GMSL_SETTING_14 || setting == GMSL_SETTING_15 ||
           setting == GMSL_SETTING_19 || setting == GMSL_SETTING_20;
}

/// Controls that carry one int.
inline bool isIntSetting(VIDEO_SETTINGS setting) {
    return setting != AEC_AGC_ROI && !isRangeSetting(setting);
}

inline constexpr int kAutomaticValue = -1;

}  // namespace oru
