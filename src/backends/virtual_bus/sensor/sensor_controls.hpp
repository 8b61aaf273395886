#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <utility>

#include "oru/controls.hpp"
#include "utils/Mutex.hpp"

namespace oru::virtual_bus {

/// What the controls amount to for one image.
struct ImageSettings {
    double light = 1.0;  ///< factor on the scene's light: exposure time times gains
    int exposure_time_us = 8'000;
    int analogue_gain_mdb = 0;
    int digital_gain_mdb = 0;
    int brightness = 4;
    int contrast = 4;
    int hue = 0;
    int saturation = 4;
    int sharpness = 3;
    int gamma = 5;
    int white_balance = 4600;  ///< kelvin; 4600 is neutral
    bool lamp = false;
    bool hdr = false;
    double noise = 0.0;  ///< standard deviation of the luma noise, in levels
    Rect region;         ///< where the luma is measured

    friend bool operator==(const ImageSettings&, const ImageSettings&) = default;
};

/// The controls of one camera with their ranges and defaults, and the loop that sets exposure and gain by itself.
/// Exposure time and the two gains (controls 13 to 15) stand apart from EXPOSURE, GAIN and AEC_AGC, because the camera
/// keeps what it wrote to those: a fixed level holds until it is released and changes nothing that they read as.
/// docs/virtual-bus.md lists every control. Threads: any.
class SensorControls {
public:
    /// All controls to their defaults, for a mode.
    void reset(int width, int height, int fps, bool hdr);

    [[nodiscard]] bool range(VIDEO_SETTINGS setting, int& min, int& max);
    [[nodiscard]] bool accepts(VIDEO_SETTINGS setting, int value);
    [[nodiscard]] int value(VIDEO_SETTINGS setting);
    /// 0, or -1 for a value that is not accepted.
    int set(VIDEO_SETTINGS setting, int value, bool automatic);
    int setRange(VIDEO_SETTINGS setting, std::pair<int, int> range, bool automatic);
    /// (-1, -1) for a control that is no range.
    [[nodiscard]] std::pair<int, int> rangeValue(VIDEO_SETTINGS setting);
    int region(Rect& region);
    int setRegion(const Rect& region);
    int resetRegion();

    [[nodiscard]] ImageSettings image();
    /// One step of the automatic exposure and gain, after an image whose region had that mean luma.
    void observe(double meanLuma);

private:
    // Exposure time, analogue gain, digital gain: microseconds, and thousandths of a decibel.
    enum Quantity : std::size_t { EXPOSURE_TIME, ANALOGUE_GAIN, DIGITAL_GAIN };
    using Levels = std::array<int, 3>;
    struct Limits {
        int min = 0;
        int max = 0;
    };

    [[nodiscard]] bool limits(VIDEO_SETTINGS setting, Limits& limits) const ORU_REQUIRES(mutex);
    [[nodiscard]] int clampTo(Quantity quantity, double value) const ORU_REQUIRES(mutex);
    /// What an image is taken with: the fixed levels, and what is wanted for the others, within the bounds.
    [[nodiscard]] Levels effectiveLevels() const ORU_REQUIRES(mutex);
    [[nodiscard]] double light() const ORU_REQUIRES(mutex);
    void setLight(double light) ORU_REQUIRES(mutex);
    void keepAutomaticLevels() ORU_REQUIRES(mutex);
    void setDefault(VIDEO_SETTINGS setting) ORU_REQUIRES(mutex);

    Mutex mutex;
    bool configured ORU_GUARDED_BY(mutex) = false;
    bool hdrMode ORU_GUARDED_BY(mutex) = false;
    int imageWidth ORU_GUARDED_BY(mutex) = 0;
    int imageHeight ORU_GUARDED_BY(mutex) = 0;
    std::array<int, kControls.size()> plainValues ORU_GUARDED_BY(mutex){};
    int exposureTimeUs ORU_GUARDED_BY(mutex) = 0;    // wanted by the loop or by EXPOSURE
    int totalGainMilliDb ORU_GUARDED_BY(mutex) = 0;  // wanted by the loop or by GAIN
    std::array<std::optional<int>, 3> fixedLevels ORU_GUARDED_BY(mutex){};
    std::array<Limits, 3> hardwareLimits ORU_GUARDED_BY(mutex){};
    std::array<Limits, 3> rangeBounds ORU_GUARDED_BY(mutex){};
    Rect meteringRegion ORU_GUARDED_BY(mutex);
};

}  // namespace oru::virtual_bus
