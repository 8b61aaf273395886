#pragma once

#include <cstdint>
#include <vector>

#include "backends/virtual_bus/lens.hpp"
#include "backends/virtual_bus/trajectory.hpp"
#include "oru/types.hpp"

namespace oru::virtual_bus {

/// One camera of the virtual bus.
struct CameraConfig {
    int id = 0;
    MODEL model = MODEL_MONO_3UM;
    uint32_t serial = 0;
    uint32_t availability = 0;  ///< 0: free to open
    int firmware = 2307;
    unsigned int mcu_firmware = 778;
    bool mcu = true;
    bool magnetometer = false;
    bool barometer = false;
    Lens lens;  ///< at the size of the whole sensor
    Motion motion = Motion::gentle;
    bool upside_down = false;
};

/// The two cameras that are there when nothing is configured.
[[nodiscard]] std::vector<CameraConfig> defaultCameras();

}  // namespace oru::virtual_bus
