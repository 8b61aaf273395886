#include <cstdlib>

#include "calibration/mode_names.hpp"
#include "oru_koruone/CameraOneImpl.hpp"
#include "oru_koruone/addresses.hpp"
#include "oru_koruone/clamped.hpp"
#include "oru_koruone/report.hpp"
#include "tables/tables.hpp"

namespace oru {
namespace {

constexpr const char* kReportedOperation = kOpenSignature;
constexpr int kDefaultFps = 30;
constexpr int kDiagnosticVerbosity = 531;
constexpr int kDiagnosticOption = 8;

void logCannotInitialize(const char* state) {
    if (state != nullptr) {
        ORU_LOG(Debug, "{}", state);
    }
    ORU_LOG(Error, "{} Cannot initialize the camera.", kTagKoru);
}

ERROR_CODE setUpFailure(SETUP_STATE state) {
    switch (state) {
        case ERROR_INSTALLATION:
            ORU_LOG(Error, "{} A corrupted SDK installation has been detected. Please run the KORU SDK installer. {}",
                    kTagInit, kInstallerAddress);
            return INSTALLATION_DAMAGED;
        case ERROR_SENSORS_OPEN:
            ORU_LOG(Error,
                    "{} A KORU camera has been detected but the sensors device has failed to open. "
                    "Please try to unplug/plug the camera again.",
                    kTagKoru);
            return SENSOR_DATA_UNAVAILABLE;
        case KORU_NOT_RECOGNIZED:
            logCannotInitialize("SETUP_STATE::KORU_NOT_RECOGNIZED");
            return static_cast<ERROR_CODE>(state);
        case ERROR_STREAM_START:
            ORU_LOG(Error,
                    "{} Cannot start camera stream. Make sure your camera is not already used by another process "
                    "or blocked by firewall.",
                    kTagKoru);
            return CAMERA_IN_USE;
        case ERROR_DURING_CONSTRUCT:
            logCannotInitialize("SETUP_STATE::ERROR_DURING_CONSTRUCT");
            return DEVICE_SETUP_FAILED;
        case ERROR_SIZE:
            logCannotInitialize("SETUP_STATE::ERROR_SIZE");
            return DEVICE_SETUP_FAILED;
        case ERROR_ECT:
            logCannotInitialize("SETUP_STATE::ERROR_ECT");
            return DEVICE_SETUP_FAILED;
        case ERROR_OV:
            logCannotInitialize("SETUP_STATE::ERROR_OV");
            return DEVICE_SETUP_FAILED;
        case ERROR_INIT:
            logCannotInitialize(nullptr);
            return DEVICE_SETUP_FAILED;
        case ERROR_SENSORS_SERIAL:
            ORU_LOG(Error,
                    "{} A KORU camera has been detected but the sensors device returned a wrong serial number. "
                    "Please run the 'KORU Diagnostic' tool with the option flag '-r' to try to recover the camera "
                    "functionalities.",
                    kTagKoru);
            return SENSORS_SERIAL_INVALID;
        default:
            ORU_LOG(Error, "{} Camera Open Internal Error: {}", kTagKoru, static_cast<int>(state));
            return DEVICE_SETUP_FAILED;
    }
}

}  // namespace

ERROR_CODE CameraOneImpl::selectLiveDevice(bool& hdrAdjusted) {
    if (initParameters.requested_fps <= 0) {
        initParameters.requested_fps = kDefaultFps;
    }
    cameraFps = initParameters.requested_fps;
    if (initParameters.requested_resolution == AUTO) {
        ORU_LOG(Info, "Using GMSL input... Switched to default resolution HD1200");
        initParameters.requested_resolution = HD1200;
    }
    const long number = std::strtol(initParameters.input.first().c_str(), nullptr, 10);
    if (initParameters.input.kind() == KIND_GMSL_ID) {
        cameraId = clampedTo<int32_t>(static_cast<double>(number));
    } else if (const ERROR_CODE found = findDeviceBySerial(static_cast<uint32_t>(number)); found != SUCCESS) {
        return found;
    }
    if (!isResolutionAllowed()) {
        ORU_REASON("camera {} has no such size; it offers {}", number, offeredSizes(cameraModel));
        return ORU_REPORT(RESOLUTION_NOT_SUPPORTED);
    }
    hdrAdjusted = adjustHdr();
    return SUCCESS;
}

ERROR_CODE CameraOneImpl::findDeviceBySerial(uint32_t serial) {
    for (const DeviceProperties& device : collaborators->devices().getGMSLDevices(true, false)) {
        if (device.serial_number != serial) {
            continue;
        }
        if (device.availability != 0) {
            ORU_REASON("another program holds camera {}", serial);
            return ORU_REPORT(CAMERA_IN_USE);
        }
        cameraId = device.id;
        cameraModel = device.model;
        return SUCCESS;
    }
    ORU_REASON("no attached camera has the serial number {}", serial);
    return ORU_REPORT(DEVICE_NOT_FOUND);
}

bool CameraOneImpl::isResolutionAllowed() const {
    const RESOLUTION asked = initParameters.requested_resolution;
    switch (cameraModel) {
        case MODEL_MONO_3UM:
            return asked == HD1080 || asked == HD1200 || asked == HD600;
        case MODEL_MONO_2UM:
            return asked == HD2160 || asked == HD1800 || asked == HD1080 || asked == HD1200;
        default:
            return true;
    }
}

/// Switches HDR to what model and resolution can do; true when that changed the request.
bool CameraOneImpl::adjustHdr() {
    const RESOLUTION asked = initParameters.requested_resolution;
    const bool isTwoMicron = cameraModel == MODEL_MONO_2UM;
    bool wanted = initParameters.use_hdr;
    if (isTwoMicron && asked == HD1800) {
        wanted = true;
    } else if (cameraModel == MODEL_MONO_3UM || (isTwoMicron && (asked == HD2160 || asked == HD1080))) {
        wanted = false;
    }
    if (wanted == initParameters.use_hdr) {
        return false;
    }
    ORU_LOG(Info, "The chosen resolution is not compatible with the chosen HDR mode. HDR mode will be changed.");
    initParameters.use_hdr = wanted;
    return true;
}

ERROR_CODE CameraOneImpl::connectLive() {
    streamInput.reset();
    resolution = initParameters.requested_resolution;
    CheckRequestedFPS(initParameters.verbosity != 0, GMSL);
    return setUpGrabber();
}

ERROR_CODE CameraOneImpl::setUpGrabber() {
    const auto size = cameraResolution.find(initParameters.requested_resolution);
    if (size == cameraResolution.end()) {
        return ORU_REPORT(INVALID_PARAMETER);
    }
    const int option = initParameters.verbosity == kDiagnosticVerbosity ? kDiagnosticOption : 0;
    const SETUP_STATE state =
        grabber->setUp(cameraId, static_cast<int>(size->second.width), static_cast<int>(size->second.height), cameraFps,
                       option, false, IMU_FREQ_2, true, initParameters.use_hdr);
    return state == SETUP_OK ? SUCCESS : setUpFailure(state);
}

}  // namespace oru
