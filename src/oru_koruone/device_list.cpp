#include "oru_koruone/CameraOneImpl.hpp"

namespace oru {

std::vector<DeviceProperties> CameraOneImpl::getDeviceList() const {
    std::vector<DeviceProperties> devices = collaborators->devices().getGrabberList(true);
    std::erase_if(devices, [](const DeviceProperties& device) {
        return device.model != MODEL_MONO_3UM && device.model != MODEL_MONO_2UM;
    });
    return devices;
}

String CameraOneImpl::getDeviceListProblem() const {
    return collaborators->devices().problem();
}

}  // namespace oru
