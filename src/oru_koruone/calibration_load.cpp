#include <cmath>
#include <limits>

#include "calibration/ConfManager.hpp"
#include "calibration/readers.hpp"
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
    const bool known = family == 1 || family == 2;
    if (known && height == 1080) {
        return "CAM_fhd";
    }
    if (known && height == 1200) {
        return "CAM_fhd1200";
    }
    if (family == 1 && height == 600) {
        return "CAM_svga";
    }
    if (family == 2 && height == 1800) {
        return "CAM_qhdplus";
    }
    if (family == 2 && height == 2160) {
        return "CAM_4k";
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
    readCameraFullDisto("DISTO", manager, configuration.raw_calibration);
    return 0;
}

}  // namespace oru
