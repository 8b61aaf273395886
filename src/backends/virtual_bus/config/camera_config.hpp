#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "backends/virtual_bus/footage/footage.hpp"
#include "backends/virtual_bus/scene/trajectory.hpp"
#include "backends/virtual_bus/sensor/faults.hpp"
#include "oru/calibration.hpp"
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
    Lens lens;  ///< at the size of the whole sensor, or of the footage
    Motion motion = Motion::GENTLE;
    bool upside_down = false;
    FootageSettings footage;  ///< with an empty path the scene is seen
    FootageFacts facts;       ///< of the footage, once it has been looked at
    FaultPlan faults;
};

/// All cameras of a bus.
struct BusConfig {
    std::vector<CameraConfig> cameras;
    std::string control_file;
};

/// The lens of a camera at the size of one mode.
[[nodiscard]] Lens lensOf(const CameraConfig& camera, const SensorMode& mode);
/// The factory calibration file of a camera.
[[nodiscard]] std::string calibrationOf(const CameraConfig& camera);

/// The two cameras that are there when nothing is configured.
[[nodiscard]] BusConfig defaultBus();

/// Reads a configuration. Relative paths are taken from `directory`. Looks at the footage by `decoder` unless that is
/// null. False with one sentence that names line and key.
[[nodiscard]] bool parseBus(std::string_view text, const std::string& directory, FootageDecoder* decoder,
                            BusConfig& bus, std::string& error);

}  // namespace oru::virtual_bus
