#include "backends/virtual_bus/sensor/sensor_controls.hpp"

#include <algorithm>
#include <cmath>
#include <optional>

namespace oru::virtual_bus {
namespace {

struct PlainControl {
    int min;
    int max;
    int standard;
};

// By the control's number; an empty range marks a control that is not a plain one.
constexpr PlainControl kNone{0, -1, 0};
constexpr std::array<PlainControl, kControls.size()> kPlainControls{{
    {0, 8, 4},           // brightness
    {0, 8, 4},           // contrast
    {0, 11, 0},          // hue
    {0, 8, 4},           // saturation
    {0, 8, 3},           // sharpness
    {1, 9, 5},           // gamma
    {0, 100, 0},         // gain, percent
    {0, 100, 0},         // exposure, percent
    {0, 1, 1},           // automatic exposure and gain
    kNone,               // its region
    {2800, 6500, 4600},  // white balance, kelvin
    {0, 1, 1},           // automatic white balance
    {0, 1, 0},           // status lamp
    kNone,
    kNone,
    kNone,  // exposure time, analogue and digital gain: limits of the mode
    kNone,
    kNone,
    kNone,         // their ranges
    {0, 100, 50},  // exposure compensation
    {0, 100, 50},  // denoising
}};

constexpr int kNeutralKelvin = 4600;
constexpr int kMinExposureUs = 28;
constexpr int kMaxExposureUs = 33'333;
constexpr int kNominalExposureUs = 8'000;  // gives the scene as it is, without gain
constexpr int kMaxAnalogueMilliDb = 24'000;
constexpr int kMaxDigitalMilliDb = 12'000;
constexpr double kGainPercentMilliDb = (kMaxAnalogueMilliDb + kMaxDigitalMilliDb) / 100.0;

constexpr double kBlack = 16.0;
constexpr double kTargetLuma = 110.0;
constexpr double kLoopTolerance = 0.02;
constexpr double kLoopExponent = 0.6;

double factor(int milliDb) {
    return std::pow(10.0, milliDb / 20'000.0);
}
double milliDb(double amplification) {
    return 20'000.0 * std::log10(amplification);
}

bool isPlain(VIDEO_SETTINGS setting) {
    if (findControl(setting) == nullptr) {
        return false;
    }
    const PlainControl& control = kPlainControls[static_cast<std::size_t>(setting)];
    return control.max >= control.min;
}

bool isLevel(VIDEO_SETTINGS setting) {
    return setting >= GMSL_SETTING_13 && setting <= GMSL_SETTING_15;
}
bool isRange(VIDEO_SETTINGS setting) {
    return isKind(setting, ControlKind::RANGE);
}

}  // namespace

void SensorControls::reset(int width, int height, int fps, bool hdr) {
    const MutexLock lock(mutex);
    configured = true;
    hdrMode = hdr;
    imageWidth = width;
    imageHeight = height;
    for (std::size_t i = 0; i < plainValues.size(); ++i) {
        plainValues[i] = kPlainControls[i].standard;
    }
    hardwareLimits = {Limits{kMinExposureUs, std::min(kMaxExposureUs, 1'000'000 / std::max(fps, 1))},
                      Limits{0, kMaxAnalogueMilliDb}, Limits{0, kMaxDigitalMilliDb}};
    rangeBounds = hardwareLimits;
    exposureTimeUs = clampTo(EXPOSURE_TIME, kNominalExposureUs);
    totalGainMilliDb = 0;
    fixedLevels = {};
    meteringRegion = {0, 0, static_cast<uint64_t>(width), static_cast<uint64_t>(height)};
}

bool SensorControls::limits(VIDEO_SETTINGS setting, Limits& limits) const {
    if (isPlain(setting)) {
        const PlainControl& control = kPlainControls[static_cast<std::size_t>(setting)];
        limits = {control.min, control.max};
        return true;
    }
    if (isLevel(setting)) {
        limits = hardwareLimits[static_cast<std::size_t>(setting - GMSL_SETTING_13)];
        return true;
    }
    if (isRange(setting)) {
        limits = hardwareLimits[static_cast<std::size_t>(setting - RANGE_SETTING_16)];
        return true;
    }
    return false;
}

bool SensorControls::range(VIDEO_SETTINGS setting, int& min, int& max) {
    const MutexLock lock(mutex);
    Limits found;
    if (!configured || !limits(setting, found)) {
        return false;
    }
    min = found.min;
    max = found.max;
    return true;
}

bool SensorControls::accepts(VIDEO_SETTINGS setting, int value) {
    const MutexLock lock(mutex);
    Limits found;
    if (!configured || isRange(setting) || !limits(setting, found)) {
        return false;
    }
    return value == kAutomaticValue || (value >= found.min && value <= found.max);
}

int SensorControls::value(VIDEO_SETTINGS setting) {
    const MutexLock lock(mutex);
    if (!configured) {
        return 0;
    }
    const Levels levels = effectiveLevels();
    if (isLevel(setting)) {
        return levels[static_cast<std::size_t>(setting - GMSL_SETTING_13)];
    }
    // A manual value reads as it was written, whatever bounds and fixed levels make of it.
    const bool automatic = plainValues[AEC_AGC] != 0;
    if (setting == GAIN) {
        const int gain = automatic ? levels[ANALOGUE_GAIN] + levels[DIGITAL_GAIN] : totalGainMilliDb;
        return static_cast<int>(std::lround(gain / kGainPercentMilliDb));
    }
    if (setting == EXPOSURE) {
        const Limits& time = hardwareLimits[EXPOSURE_TIME];
        const int exposure = automatic ? levels[EXPOSURE_TIME] : exposureTimeUs;
        return static_cast<int>(std::lround(100.0 * (exposure - time.min) / (time.max - time.min)));
    }
    return isPlain(setting) ? plainValues[static_cast<std::size_t>(setting)] : 0;
}

int SensorControls::set(VIDEO_SETTINGS setting, int value, bool automatic) {
    if (!accepts(setting, value)) {
        return -1;
    }
    const MutexLock lock(mutex);
    if (isLevel(setting)) {
        const bool released = automatic || value == kAutomaticValue;
        fixedLevels[static_cast<std::size_t>(setting - GMSL_SETTING_13)] =
            released ? std::nullopt : std::optional<int>(value);
        return 0;
    }
    const std::optional<VIDEO_SETTINGS> automaticSwitch = kControls[static_cast<std::size_t>(setting)].automatic_switch;
    if (automatic || value == kAutomaticValue) {
        setDefault(setting);
        return 0;
    }
    if (automaticSwitch == AEC_AGC || (setting == AEC_AGC && value == 0)) {
        keepAutomaticLevels();
    }
    if (automaticSwitch) {
        plainValues[*automaticSwitch] = 0;
    }
    plainValues[static_cast<std::size_t>(setting)] = value;
    if (setting == GAIN) {
        totalGainMilliDb = static_cast<int>(std::lround(value * kGainPercentMilliDb));
    } else if (setting == EXPOSURE) {
        const Limits& time = hardwareLimits[EXPOSURE_TIME];
        exposureTimeUs = static_cast<int>(std::lround(time.min + value / 100.0 * (time.max - time.min)));
    }
    return 0;
}

/// What the loop has reached holds on without it.
void SensorControls::keepAutomaticLevels() {
    if (plainValues[AEC_AGC] == 0) {
        return;
    }
    const Levels levels = effectiveLevels();
    exposureTimeUs = levels[EXPOSURE_TIME];
    totalGainMilliDb = levels[ANALOGUE_GAIN] + levels[DIGITAL_GAIN];
}

void SensorControls::setDefault(VIDEO_SETTINGS setting) {
    if (setting != GAIN && setting != EXPOSURE) {
        plainValues[static_cast<std::size_t>(setting)] = kPlainControls[static_cast<std::size_t>(setting)].standard;
        return;
    }
    // While the loop runs, the automatic level is what it says.
    if (plainValues[AEC_AGC] != 0) {
        return;
    }
    if (setting == EXPOSURE) {
        exposureTimeUs = clampTo(EXPOSURE_TIME, kNominalExposureUs);
    } else {
        totalGainMilliDb = 0;
    }
}

int SensorControls::setRange(VIDEO_SETTINGS setting, std::pair<int, int> range, bool automatic) {
    const MutexLock lock(mutex);
    if (!configured || !isRange(setting)) {
        return -1;
    }
    const auto quantity = static_cast<Quantity>(setting - RANGE_SETTING_16);
    const Limits& hardware = hardwareLimits[quantity];
    if (automatic) {
        rangeBounds[quantity] = hardware;
    } else if (range.first >= hardware.min && range.second <= hardware.max && range.first <= range.second) {
        rangeBounds[quantity] = {range.first, range.second};
    } else {
        return -1;
    }
    return 0;
}

std::pair<int, int> SensorControls::rangeValue(VIDEO_SETTINGS setting) {
    const MutexLock lock(mutex);
    if (!configured || !isRange(setting)) {
        return {-1, -1};
    }
    const Limits& bounds = rangeBounds[static_cast<std::size_t>(setting - RANGE_SETTING_16)];
    return {bounds.min, bounds.max};
}

int SensorControls::region(Rect& region) {
    const MutexLock lock(mutex);
    if (!configured) {
        return -1;
    }
    region = meteringRegion;
    return 0;
}

int SensorControls::setRegion(const Rect& region) {
    const MutexLock lock(mutex);
    const auto width = static_cast<uint64_t>(imageWidth);
    const auto height = static_cast<uint64_t>(imageHeight);
    const bool inside = region.width > 0 && region.height > 0 && region.x < width && region.y < height &&
                        region.width <= width - region.x && region.height <= height - region.y;
    if (!configured || !inside) {
        return -1;
    }
    meteringRegion = region;
    return 0;
}

int SensorControls::resetRegion() {
    const MutexLock lock(mutex);
    meteringRegion = {0, 0, static_cast<uint64_t>(imageWidth), static_cast<uint64_t>(imageHeight)};
    return configured ? 0 : -1;
}

ImageSettings SensorControls::image() {
    const MutexLock lock(mutex);
    ImageSettings image;
    image.light = light();
    image.brightness = plainValues[SETTING_0];
    image.contrast = plainValues[SETTING_1];
    image.hue = plainValues[SETTING_2];
    image.saturation = plainValues[SETTING_3];
    image.sharpness = plainValues[SHARPNESS];
    image.gamma = plainValues[SETTING_5];
    image.white_balance = plainValues[SETTING_10_AUTO] != 0 ? kNeutralKelvin : plainValues[SETTING_10];
    image.lamp = plainValues[SETTING_12] != 0;
    image.hdr = hdrMode;
    // Gain lifts the noise of a dark sensor along with the light; full denoising leaves a tenth of it.
    const Levels levels = effectiveLevels();
    image.exposure_time_us = levels[EXPOSURE_TIME];
    image.analogue_gain_mdb = levels[ANALOGUE_GAIN];
    image.digital_gain_mdb = levels[DIGITAL_GAIN];
    const double gain = factor(levels[ANALOGUE_GAIN] + levels[DIGITAL_GAIN]);
    image.noise = 0.6 * (gain - 1.0) * (1.0 - 0.009 * plainValues[GMSL_SETTING_20]);
    image.region = meteringRegion;
    return image;
}

void SensorControls::observe(double meanLuma) {
    const MutexLock lock(mutex);
    if (plainValues[AEC_AGC] == 0) {
        return;
    }
    const double compensation = std::exp2((plainValues[GMSL_SETTING_19] - 50) / 50.0);
    const double target = (kTargetLuma - kBlack) * compensation;
    const double ratio = target / std::max(meanLuma - kBlack, 1.0);
    if (std::abs(ratio - 1.0) > kLoopTolerance) {
        setLight(light() * std::pow(std::clamp(ratio, 0.3, 3.0), kLoopExponent));
    }
}

int SensorControls::clampTo(Quantity quantity, double value) const {
    const Limits& bounds = rangeBounds[quantity];
    return static_cast<int>(
        std::lround(std::clamp(value, static_cast<double>(bounds.min), static_cast<double>(bounds.max))));
}

SensorControls::Levels SensorControls::effectiveLevels() const {
    const auto level = [this](Quantity quantity, int wanted)
                           ORU_REQUIRES(mutex) { return clampTo(quantity, fixedLevels[quantity].value_or(wanted)); };
    Levels levels{};
    levels[EXPOSURE_TIME] = level(EXPOSURE_TIME, exposureTimeUs);
    levels[ANALOGUE_GAIN] = level(ANALOGUE_GAIN, totalGainMilliDb - fixedLevels[DIGITAL_GAIN].value_or(0));
    levels[DIGITAL_GAIN] = level(DIGITAL_GAIN, totalGainMilliDb - levels[ANALOGUE_GAIN]);
    return levels;
}

double SensorControls::light() const {
    const Levels levels = effectiveLevels();
    return static_cast<double>(levels[EXPOSURE_TIME]) / kNominalExposureUs *
           factor(levels[ANALOGUE_GAIN] + levels[DIGITAL_GAIN]);
}

void SensorControls::setLight(double light) {
    // Time first, then gain; a fixed gain is there already.
    const int fixedGain = fixedLevels[ANALOGUE_GAIN].value_or(0) + fixedLevels[DIGITAL_GAIN].value_or(0);
    exposureTimeUs = clampTo(EXPOSURE_TIME, light * kNominalExposureUs / factor(fixedGain));
    const double left = milliDb(light * kNominalExposureUs / effectiveLevels()[EXPOSURE_TIME]);
    const double most = rangeBounds[ANALOGUE_GAIN].max + rangeBounds[DIGITAL_GAIN].max;
    totalGainMilliDb = static_cast<int>(std::lround(std::clamp(left, 0.0, most)));
}

}  // namespace oru::virtual_bus
