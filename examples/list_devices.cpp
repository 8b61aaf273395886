// Lists the attached cameras; nothing is opened.
#include <cstdio>

#include "oru/CameraOne.hpp"

int main() {
    const oru::CameraOne camera;
    for (const oru::DeviceProperties& device : camera.getDeviceList()) {
        std::printf("id %d  model %d  serial %u  %s  %s\n", device.id, static_cast<int>(device.model),
                    device.serial_number, device.path.c_str(), device.availability == 0 ? "free" : "in use");
    }
    return 0;
}
