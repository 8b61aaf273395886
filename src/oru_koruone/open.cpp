#include "oru_koruone/input_operations.hpp"
#include "oru_koruone/report.hpp"

#include "collaborators/kit_functions.hpp"
#include "oru/frames.hpp"

namespace oru {
namespace {

constexpr const char* kReportedOperation = kOpenSignature;

}  // namespace

ERROR_CODE CameraOneImpl::open(const InitParametersOne& params) {
    leavePreviousOpening();
    resetVariables();
    {
        const MutexLock lock(imuMutex);
        currentImu = {};
        frameImuPackets.clear();
        imuPoseMatrix.setIdentity();
    }
    imuSource = INPUT_MODE_NONE;
    initParameters = params;
    unitFactor = 1.0F / getScaleMillimeter(initParameters.length_unit);
    replaceGrabber();
    if (!initParameters.input.isSet()) {
        initParameters.input.setFromCameraID(-1, BUS_TYPE_2, CAMERA_TYPE_0);
    }
    bool hdrAdjusted = false;
    if (const ERROR_CODE selected = selectInput(hdrAdjusted); selected != SUCCESS) {
        return selected;
    }
    setCoordinateTransform();
    if (initParameters.image_flip != kAutomaticFlip) {
        imageFlipped = initParameters.image_flip == 1;
    }
    if (const ERROR_CODE connected = input().connect(*this); connected != SUCCESS) {
        return connected;
    }
    if (const ERROR_CODE asked = adoptFacts(); asked != SUCCESS) {
        return ORU_REPORT(asked);
    }
    return hdrAdjusted ? CONFIGURATION_ADJUSTED : finishOpen();
}

/// Asks the input and takes over what it said, also where it then turned out to be unfit.
ERROR_CODE CameraOneImpl::adoptFacts() {
    InputFacts facts;
    const ERROR_CODE asked = input().ask(*this, facts);
    const auto adopt = [](auto& member, const auto& fact) { member = fact.value_or(member); };
    adopt(cameraInformation.serial_number, facts.serial_number);
    adopt(cameraModel, facts.model);
    adopt(cameraInformation.model, facts.described_model);
    adopt(cameraInformation.configuration.firmware_version, facts.camera_firmware);
    adopt(cameraInformation.sensors.firmware_version, facts.sensors_firmware);
    adopt(imageSize, facts.image_size);
    adopt(resolution, facts.resolution);
    adopt(cameraFps, facts.fps);
    adopt(sharpnessFactor, facts.sharpness_factor);
    adopt(imuCalibration, facts.imu_calibration);
    if (initParameters.image_flip == kAutomaticFlip && (facts.flipped || asked == SUCCESS)) {
        imageFlipped = facts.flipped.value_or(false);
    }
    if (facts.has_imu) {
        imuSource = inputMode;
    }
    return asked;
}

void CameraOneImpl::replaceGrabber() {
    grabber.reset();
    grabber = collaborators->makeGrabber(INPUT_TYPE_PENDING);
    grabber->setInputType(GMSL);
    grabber->setMonoCapture(true);
}

ERROR_CODE CameraOneImpl::selectInput(bool& hdrAdjusted) {
    const InputKind kind = initParameters.input.kind();
    switch (kind) {
        case KIND_RLX_FILE:
            selectRecordedFile();
            return SUCCESS;
        case KIND_STREAM:
            selectStream();
            return SUCCESS;
        case KIND_GMSL_ID:
        case KIND_GMSL_SERIAL:
            inputMode = INPUT_MODE_LIVE;
            return selectLiveDevice(hdrAdjusted);
        default:
            break;
    }
    const bool otherCameras = kind == InputKind{0} || kind == InputKind{1};
    return ORU_REPORT(otherCameras ? INVALID_PARAMETER : DEVICE_NOT_FOUND);
}

void CameraOneImpl::setCoordinateTransform() {
    const Matrix3f axes = frames::opticalFromApplication(initParameters.axis_convention);
    coordinateSystem.setIdentity();
    for (std::size_t row = 0; row < 3; ++row) {
        for (std::size_t column = 0; column < 3; ++column) {
            coordinateSystem(row, column) = axes(row, column);
        }
    }
    cvtMatrix4f(coordinateSystem, coordinateTransform);
}

}  // namespace oru
