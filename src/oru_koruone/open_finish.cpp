#include "calibration/readers.hpp"
#include "oru_koruone/CameraOneImpl.hpp"
#include "oru_koruone/GpuContextScope.hpp"
#include "oru_koruone/addresses.hpp"
#include "oru_koruone/report.hpp"

namespace oru {
namespace {

constexpr const char* kReportedOperation = kOpenSignature;
constexpr int kNoImageSize = 42;
constexpr unsigned kYieldWhileWaiting = 2;  // CU_CTX_SCHED_YIELD
constexpr int kCalibrationMissing = -1;

void turnPrincipalPoint(CameraParameters& calibration, const Resolution& size) {
    calibration.cx = static_cast<float>(size.width) - calibration.cx;
    calibration.cy = static_cast<float>(size.height) - calibration.cy;
}

}  // namespace

ERROR_CODE CameraOneImpl::finishOpen() {
    if (imageSize.area() == 0) {
        ORU_LOG(Error, "{} Camera Open Internal Error: {}", kTagKoru, kNoImageSize);
        return DEVICE_SETUP_FAILED;
    }
    if (const ERROR_CODE loaded = loadCalibration(); loaded != SUCCESS) {
        return loaded;
    }
    prepareGpuContext();
    const GpuContextScope context(collaborators->gpu(), initParameters.cuda_context);
    releaseCudaStream();
    (void)collaborators->gpu().cudaStreamCreate(&cudaStream);
    CameraModeDescription& configuration = cameraInformation.configuration;
    configuration.calibration = rectifier->setup(configuration.raw_calibration, cudaStream, imageFlipped);
    if (imageFlipped) {
        turnPrincipalPoint(configuration.calibration, imageSize);
        turnPrincipalPoint(configuration.raw_calibration, imageSize);
    }
    setLensLength(configuration.raw_calibration, imageSize, cameraModel);
    setLensLength(configuration.calibration, imageSize, cameraModel);
    // Before the flag: whoever sees the camera open finds the buffer.
    if (image.alloc(imageSize, U8_C2, CPU_AND_GPU) != SUCCESS) {
        ORU_LOG(Error, "{} There is no memory for images of {} x {} pixels.", kTagInit, imageSize.width,
                imageSize.height);
    }
    opened.store(true, std::memory_order_release);
    return SUCCESS;
}

ERROR_CODE CameraOneImpl::loadCalibration() {
    const int result = readCameraParam();
    if (result == 0) {
        return SUCCESS;
    }
    if (result == kCalibrationMissing) {
        ORU_LOG(
            Info,
            "{} Unable to download calibration file.\n * Option 1: Launch KORU Explorer App with --dc {}\n * Option "
            "2: Download your calibration file on {}",
            kTagInit, cameraInformation.serial_number, kCalibrationAddress);
        return ORU_REPORT(CALIBRATION_MISSING);
    }
    ORU_LOG(Info,
            "{} Invalid calibration file. Recalibrate your camera using KORU Calibration tool or download your "
            "calibration file on {}",
            kTagInit, kCalibrationAddress);
    return ORU_REPORT(CALIBRATION_INCOMPLETE);
}

void CameraOneImpl::prepareGpuContext() {
    if (initParameters.cuda_context != nullptr) {
        return;
    }
    GpuRuntime& gpu = collaborators->gpu();
    (void)gpu.cudaSetDevice(0);
    (void)gpu.cuCtxGetCurrent(&initParameters.cuda_context);
    if (initParameters.cuda_context == nullptr) {
        (void)gpu.cuCtxCreate_v2(&initParameters.cuda_context, kYieldWhileWaiting, 0);
    }
}

}  // namespace oru
