#include "backends/virtual_bus/sensor/sensor_modes.hpp"

#include <fmt/format.h>

#include <iterator>
#include <span>

namespace oru::virtual_bus {
namespace {

constexpr SensorMode kModes3um[] = {
    {1920, 1200, 60, 1, "fhd1200"},
    {1920, 1080, 60, 1, "fhd"},
    {960, 600, 120, 2, "svga"},
};
constexpr SensorMode kModes2um[] = {
    {3840, 2160, 30, 1, "4k"},
    {3200, 1800, 30, 1, "qhdplus"},
    {1920, 1080, 60, 2, "fhd"},
    {1920, 1200, 60, 1, "fhd1200"},
};

std::span<const SensorMode> modes(MODEL model) {
    if (model == MODEL_MONO_3UM) {
        return kModes3um;
    }
    if (model == MODEL_MONO_2UM) {
        return kModes2um;
    }
    return {};
}

}  // namespace

const SensorMode* findMode(MODEL model, int width, int height) {
    for (const SensorMode& mode : modes(model)) {
        if (mode.width == width && mode.height == height) {
            return &mode;
        }
    }
    return nullptr;
}

Resolution sensorSize(MODEL model) {
    const auto list = modes(model);
    if (list.empty()) {
        return {};
    }
    return {static_cast<std::size_t>(list.front().width), static_cast<std::size_t>(list.front().height)};
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
    static constexpr const char* kNames[] = {"k1", "k2", "p1", "p2", "k3", "k4", "k5", "k6", "s1", "s2", "s3", "s4"};
    std::string text = fmt::format("[MISC]\nSensor_ID = {}\n", model == MODEL_MONO_2UM ? 2 : 1);
    for (const SensorMode& mode : modes(model)) {
        const Lens lens = lensOf(mode);
        fmt::format_to(std::back_inserter(text), "\n[CAM_{}]\nfx = {:.6f}\nfy = {:.6f}\ncx = {:.6f}\ncy = {:.6f}\n",
                       mode.section, lens.fx, lens.fy, lens.cx, lens.cy);
    }
    text += "\n[DISTO]\n";
    for (std::size_t i = 0; i < std::size(kNames); ++i) {
        fmt::format_to(std::back_inserter(text), "{} = {:.10g}\n", kNames[i], distortion[i]);
    }
    return text;
}

Lens defaultLens(MODEL model) {
    // A barrel distortion close to atan(a r) / a (a = 0.70 and 0.60) as a rational function, with small
    // tangential and prism terms such as a real calibration finds.
    if (model == MODEL_MONO_2UM) {
        return {2013.62,
                2013.05,
                1926.84,
                1071.37,
                {0.280000, 0.008777, -0.00031, 0.00024, 0.00011, 0.400000, 0.030857, 0.00018, 0.00042, -0.00013,
                 -0.00037, 0.00009}};
    }
    return {1068.42,
            1067.95,
            967.31,
            594.62,
            {0.381111, 0.016261, 0.00042, -0.00028, 0.00021, 0.544444, 0.057167, 0.00034, -0.00051, 0.00017, 0.00046,
             -0.00012}};
}

}  // namespace oru::virtual_bus
