#include <cstdlib>
#include <limits>

#include "oru_koruone/CameraOneImpl.hpp"
#include "oru_koruone/report.hpp"
#include "tables/tables.hpp"

namespace oru {
namespace {

constexpr const char* kReportedOperation = kOpenSignature;
constexpr int kAutomaticFlip = 2;
constexpr int32_t kDefaultPort = 30000;
constexpr int kConnectionFailed = -5;

}  // namespace

void CameraOneImpl::selectStream() {
    inputMode = INPUT_MODE_STREAM;
    const std::string& address = initParameters.input.first().get();
    streamInputIp = address;
    streamInputPort = kDefaultPort;
    if (const std::size_t colon = address.rfind(':'); colon != std::string::npos) {
        streamInputIp = address.substr(0, colon);
        streamInputPort = static_cast<int32_t>(std::strtol(address.c_str() + colon + 1, nullptr, 10));
    }
}

ERROR_CODE CameraOneImpl::openStream() {
    if (streamInputPort < 0 || streamInputPort > std::numeric_limits<unsigned short>::max()) {
        return ORU_REPORT(INVALID_PARAMETER);
    }
    // The first receiver goes before the next one connects.
    streamInput.reset();
    streamInput = collaborators->makeStreamInput(initParameters.verbosity != 0);
    if (!streamInput) {
        return ORU_REPORT(NOT_SUPPORTED);
    }
    const int connected = streamInput->open(streamInputIp.c_str(), static_cast<unsigned short>(streamInputPort), 0);
    if (connected == kConnectionFailed || connected > 0) {
        return ORU_REPORT(FAILURE);
    }
    if (connected < 0) {
        return ORU_REPORT(STREAM_SETUP_FAILED);
    }
    const StreamDescription sender = streamInput->description();
    cameraInformation.serial_number = sender.serial_number;
    cameraModel = sender.model;
    cameraInformation.model = sender.model;
    if (cameraModel != MODEL_MONO_3UM && cameraModel != MODEL_MONO_2UM) {
        return ORU_REPORT(NOT_SUPPORTED);
    }
    cameraInformation.configuration.firmware_version = sender.camera_fw;
    cameraInformation.sensors.firmware_version = sender.sensors_fw;
    imageSize = {sender.width, sender.height};
    resolution = resolutionOf(imageSize);
    if (sender.has_imu) {
        imuSource = INPUT_MODE_STREAM;
    }
    sharpnessFactor = static_cast<float>(1.0 + 0.5 * streamInput->getGrabberSettingsValue(SHARPNESS));
    if (initParameters.image_flip == kAutomaticFlip) {
        imageFlipped = sender.flip_state != 0;
    }
    return finishOpen();
}

}  // namespace oru
