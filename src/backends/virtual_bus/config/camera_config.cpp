#include "backends/virtual_bus/config/camera_config.hpp"

#include "backends/virtual_bus/sensor/default_lens.hpp"

namespace oru::virtual_bus {

Lens lensOf(const CameraConfig& camera, const SensorMode& mode) {
    if (camera.footage.path.empty() || camera.facts.width == 0) {
        return modeLens(camera.model, camera.lens, mode);
    }
    return coveredLens(camera.lens, camera.facts, mode.width, mode.height);
}

std::string calibrationOf(const CameraConfig& camera) {
    return calibrationText(camera.model, camera.lens.distortion,
                           [&](const SensorMode& mode) { return lensOf(camera, mode); });
}

BusConfig defaultBus() {
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
    return {{first, second}, {}};
}

}  // namespace oru::virtual_bus
