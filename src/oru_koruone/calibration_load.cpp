#include <cmath>
#include <limits>

#include "calibration/ConfManager.hpp"
#include "calibration/readers.hpp"
#include "oru/calibration.hpp"
#include "oru_koruone/CameraOneImpl.hpp"

namespace oru {
namespace {

constexpr int kNoFile = -1;
constexpr int kNoSection = -2;

/// Truncated toward zero; what no int holds reads as 0.
int toInt(float value) {
    const bool fits = std::abs(value) < static_cast<float>(std::numeric_limits<int>::max());
    return fits ? static_cast<int>(value) : 0;
}

/// The section of a sensor family for a height; null when there is none. The width is not consulted.
const char* sectionName(int family, uint64_t height) {
    for (const SensorMode& mode : sensorModes(modelOfFamily(family))) {
        if (static_cast<uint64_t>(mode.height) == height) {
            return mode.section;
        }
    }
    return nullptr;
}

}  // namespace

/// 0, or -1 without a calibration file, or -2 when the file has no section for the working resolution.
int CameraOneImpl::readCameraParam() {
    const std::string& directory = initParameters.settings_path.get();
    const int serial = cameraInformation.serial_number;
    ConfManager manager;
    openConfFile(directory, serial, manager);
    if (!manager.is_open) {
        (void)collaborators->calibration().downloadCalibFile(initParameters.settings_path, serial);
        openConfFile(directory, serial, manager);
    }
    if (!manager.is_open) {
        return kNoFile;
    }
    const char* section = sectionName(toInt(manager.getValue("MISC:Sensor_ID", 0.0F)), imageSize.height);
    if (section == nullptr) {
        return kNoSection;
    }
    CameraModeDescription& configuration = cameraInformation.configuration;
    configuration.raw_calibration = readCamera(section, manager);
    configuration.raw_calibration.image_size = imageSize;
    configuration.resolution = imageSize;
    configuration.fps = getCameraFPS();
    readCameraFullDisto(kDistortionSection, manager, configuration.raw_calibration);
    return 0;
}

}  // namespace oru
