#include <fmt/format.h>

#include <cmath>
#include <iterator>

#include "calibration/mode_names.hpp"
#include "oru/calibration.hpp"

namespace oru {
namespace {

constexpr SensorMode kModes3um[] = {
    {1920, 1200, 60, 1, "CAM_fhd1200"},
    {1920, 1080, 60, 1, "CAM_fhd"},
    {960, 600, 120, 2, "CAM_svga"},
};
constexpr SensorMode kModes2um[] = {
    {3840, 2160, 30, 1, "CAM_4k"},
    {3200, 1800, 30, 1, "CAM_qhdplus"},
    {1920, 1080, 60, 2, "CAM_fhd"},
    {1920, 1200, 60, 1, "CAM_fhd1200"},
};

}  // namespace

std::span<const SensorMode> sensorModes(MODEL model) {
    if (model == MODEL_MONO_3UM) {
        return kModes3um;
    }
    if (model == MODEL_MONO_2UM) {
        return kModes2um;
    }
    return {};
}

std::string offeredSizes(MODEL model) {
    std::string text;
    for (const SensorMode& mode : sensorModes(model)) {
        // The camera's sizes are named after their height.
        text += fmt::format("{}HD{} ({}x{})", text.empty() ? "" : ", ", mode.height, mode.width, mode.height);
    }
    return text;
}

const SensorMode* findMode(MODEL model, int width, int height) {
    for (const SensorMode& mode : sensorModes(model)) {
        if (mode.width == width && mode.height == height) {
            return &mode;
        }
    }
    return nullptr;
}

Resolution sensorSize(MODEL model) {
    const auto list = sensorModes(model);
    if (list.empty()) {
        return {};
    }
    return {static_cast<std::size_t>(list.front().width), static_cast<std::size_t>(list.front().height)};
}

MODEL modelOfFamily(double family) {
    const double whole = std::trunc(family);
    return whole == 1 ? MODEL_MONO_3UM : (whole == 2 ? MODEL_MONO_2UM : MODEL_UNKNOWN);
}

int familyOf(MODEL model) {
    return model == MODEL_MONO_3UM ? 1 : (model == MODEL_MONO_2UM ? 2 : 0);
}

Lens modeLens(MODEL model, const Lens& sensor, const SensorMode& mode) {
    const Resolution full = sensorSize(model);
    const double left = (static_cast<double>(full.width) - mode.width * mode.binning) / 2.0;
    const double top = (static_cast<double>(full.height) - mode.height * mode.binning) / 2.0;
    Lens lens = sensor;
    lens.fx = sensor.fx / mode.binning;
    lens.fy = sensor.fy / mode.binning;
    // Pixel centres are integers, so the corner of the image is at -0.5.
    lens.cx = (sensor.cx - left + 0.5) / mode.binning - 0.5;
    lens.cy = (sensor.cy - top + 0.5) / mode.binning - 0.5;
    return lens;
}

std::string calibrationText(MODEL model, const std::array<double, 12>& distortion,
                            const std::function<Lens(const SensorMode&)>& lensOf) {
    std::string text = fmt::format("[MISC]\nSensor_ID = {}\n", familyOf(model));
    for (const SensorMode& mode : sensorModes(model)) {
        const Lens lens = lensOf(mode);
        fmt::format_to(std::back_inserter(text), "\n[{}]\nfx = {:.6f}\nfy = {:.6f}\ncx = {:.6f}\ncy = {:.6f}\n",
                       mode.section, lens.fx, lens.fy, lens.cx, lens.cy);
    }
    fmt::format_to(std::back_inserter(text), "\n[{}]\n", kDistortionSection);
    for (std::size_t i = 0; i < kDistortionNames.size(); ++i) {
        fmt::format_to(std::back_inserter(text), "{} = {:.10g}\n", kDistortionNames[i], distortion[i]);
    }
    return text;
}

std::string calibrationText(MODEL model, const Lens& sensor) {
    return calibrationText(model, sensor.distortion,
                           [&](const SensorMode& mode) { return modeLens(model, sensor, mode); });
}

}  // namespace oru
