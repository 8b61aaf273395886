#include "backends/virtual_bus/camera_config.hpp"

#include "backends/virtual_bus/sensor_modes.hpp"

namespace oru::virtual_bus {

std::vector<CameraConfig> defaultCameras() {
    CameraConfig first;
    first.id = 0;
    first.model = MODEL_MONO_3UM;
    first.serial = 30010001;
    first.lens = defaultLens(first.model);
    CameraConfig second;
    second.id = 1;
    second.model = MODEL_MONO_2UM;
    second.serial = 31020002;
    second.lens = defaultLens(second.model);
    return {first, second};
}

}  // namespace oru::virtual_bus
