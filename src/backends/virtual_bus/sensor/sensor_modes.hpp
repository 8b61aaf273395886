#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "oru/Lens.hpp"
#include "oru/types.hpp"

namespace oru::virtual_bus {

/// How one image size is read out of the sensor.
struct SensorMode {
    int width = 0;
    int height = 0;
    int max_fps = 0;
    int binning = 1;                ///< sensor pixels a side that make one image pixel
    const char* section = nullptr;  ///< of the calibration file
};

/// The mode of a model with that size; null when it has none.
[[nodiscard]] const SensorMode* findMode(MODEL model, int width, int height);

/// The largest size of a model, which its lens refers to.
[[nodiscard]] Resolution sensorSize(MODEL model);

/// The lens as seen through a mode: the centre of the sensor is cut out, then binned.
[[nodiscard]] Lens modeLens(MODEL model, const Lens& sensor, const SensorMode& mode);

/// A factory calibration file: sections MISC, CAM_<mode> for each mode of the model with its pinhole, DISTO.
[[nodiscard]] std::string calibrationText(MODEL model, const std::array<double, 12>& distortion,
                                          const std::function<Lens(const SensorMode&)>& lensOf);

/// The lens of a camera of that model for which nothing else is configured.
[[nodiscard]] Lens defaultLens(MODEL model);

}  // namespace oru::virtual_bus
