#include <utility>

#include "collaborators/CollaboratorFactory.hpp"

namespace oru {

std::vector<DeviceProperties> ArgusCamera::getGMSLDevices(bool first, bool second) {
    const auto factory = CollaboratorFactory::processDefault();
    return factory ? factory->devices().getGMSLDevices(first, second) : std::vector<DeviceProperties>();
}

std::vector<DeviceProperties> getGrabberList(bool all) {
    const auto factory = CollaboratorFactory::processDefault();
    return factory ? factory->devices().getGrabberList(all) : std::vector<DeviceProperties>();
}

ERROR_CODE CameraMemberHandler::resetMCU(int index) {
    const auto factory = CollaboratorFactory::processDefault();
    return factory ? factory->devices().resetMCU(index) : FAILURE;
}

bool downloadCalibFile(String directory, int serial_number) {
    const auto factory = CollaboratorFactory::processDefault();
    return factory && factory->calibration().downloadCalibFile(std::move(directory), serial_number);
}

}  // namespace oru
