#pragma once

#include <cstdint>

namespace oru {

/// The camera's controls; oru/controls.hpp lists what each holds. Int controls carry one int, where writing -1 asks for
/// the automatic value.
enum VIDEO_SETTINGS : int32_t {
    SETTING_0,
    SETTING_1,
    SETTING_2,
    SETTING_3,
    SHARPNESS,
    SETTING_5,
    GAIN,         ///< a manual value ends the automatic exposure and gain
    EXPOSURE,     ///< as GAIN
    AEC_AGC,      ///< automatic exposure and gain, 0 or 1
    AEC_AGC_ROI,  ///< a Rect: where the automatic exposure looks
    SETTING_10,   ///< manual level governed by SETTING_10_AUTO
    SETTING_10_AUTO,
    SETTING_12,        ///< write only
    GMSL_SETTING_13,   ///< read only, live camera
    GMSL_SETTING_14,   ///< read only, live camera
    GMSL_SETTING_15,   ///< read only, live camera
    RANGE_SETTING_16,  ///< a pair (minimum, maximum), live camera
    RANGE_SETTING_17,  ///< a pair (minimum, maximum), live camera
    RANGE_SETTING_18,  ///< a pair (minimum, maximum), live camera
    GMSL_SETTING_19,   ///< read only, live camera
    GMSL_SETTING_20,   ///< read only, live camera
};

/// A region of the image, in pixels.
struct Rect {
    uint64_t x = 0;
    uint64_t y = 0;
    uint64_t width = 0;
    uint64_t height = 0;

    friend bool operator==(const Rect&, const Rect&) = default;
};

}  // namespace oru
