#include "calibration/readers.hpp"
#include "oru_koruone/CameraOneImpl.hpp"
#include "oru_koruone/report.hpp"
#include "tables/tables.hpp"
#include "utils/env_var.hpp"

namespace oru {
namespace {

constexpr const char* kReportedOperation = kOpenSignature;
constexpr int kAutomaticFlip = 2;
constexpr int kDamaged = 1;
constexpr int kNotDecodable = 2;
constexpr int kWarmUpFrame = 3;

ERROR_CODE unreadable() {
    ORU_LOG(Error,
            "{} Cannot load RLX file. Check that the path of the RLX is correct, avoid white spaces in filename, add "
            "\".rlx\" or \".rlx2\" extension to filename.",
            kTagInit);
    return ORU_REPORT(RLX_FILE_UNREADABLE);
}

void logRepairFailure(int result) {
    switch (result) {
        case 1:
            ORU_LOG(Debug,
                    "Failed to repair RLX file. Cannot read input file. Please check that the input path of the RLX is "
                    "correct");
            break;
        case 2:
            ORU_LOG(Debug,
                    "Failed to repair RLX file. Cannot create output file. Please check that you have permissions to "
                    "write in this folder");
            break;
        default:
            ORU_LOG(Debug, "Failed to repair RLX file. Invalid compression detected in input file.");
            break;
    }
    ORU_LOG(Info, "RLX auto-repair failed");
}

bool isDrivenModel(MODEL model) {
    return model == MODEL_MONO_3UM || model == MODEL_MONO_2UM;
}

}  // namespace

void CameraOneImpl::selectRecordedFile() {
    inputMode = INPUT_MODE_RECORDED;
    if (check_env_var_real_time_rlx()) {
        initParameters.rlx_real_time = true;
    }
    rlxPath = expandHome(initParameters.input.first().get());
}

ERROR_CODE CameraOneImpl::openRecorded() {
    streamInput.reset();
    if (!hasRecordingModule()) {
        return ORU_REPORT(NOT_SUPPORTED);
    }
    const int opening = rlxReader->open(rlxPath.c_str());
    if (opening == kNotDecodable) {
        ORU_LOG(Error,
                "{} Cannot open RLX file due to unsupported compression. Make sure that NVENC is installed on your PC.",
                kTagInit);
        return ORU_REPORT(RLX_CODEC_UNAVAILABLE);
    }
    if (opening == kDamaged) {
        if (const ERROR_CODE repaired = repairRecorded(); repaired != SUCCESS) {
            return repaired;
        }
    }
    const bool flipped = readRecordedHeader();
    if (!isDrivenModel(cameraModel)) {
        return ORU_REPORT(NOT_SUPPORTED);
    }
    resolution = resolutionOf(imageSize);
    initParameters.requested_resolution = resolution;
    if (initParameters.rlx_real_time) {
        checkRealTime();
    }
    readRecordedFacts();
    if (initParameters.image_flip == kAutomaticFlip) {
        imageFlipped = flipped;
    }
    rlxReader->setPosition(kWarmUpFrame);
    rlxReader->setPosition(0);
    return finishOpen();
}

ERROR_CODE CameraOneImpl::repairRecorded() {
    if (!check_env_var_repair_rlx_in_place()) {
        return unreadable();
    }
    ORU_LOG(Info, "Corruption detected in RLX file, attempting to auto-repair the file...");
    if (const int result = rlxReader->repairFile(rlxPath.c_str(), "", true, false); result != 0) {
        logRepairFailure(result);
        return unreadable();
    }
    if (rlxReader->open(rlxPath.c_str()) == kDamaged) {
        return unreadable();
    }
    ORU_LOG(Info, "RLX auto-repair succeeded");
    return SUCCESS;
}

/// Switches real time off where the file cannot be played at its pace.
void CameraOneImpl::checkRealTime() {
    const RLX_COMPRESSION_MODE mode = rlxReader->getCompressionMode();
    if (mode == RLX_RAW) {
        initParameters.rlx_real_time = false;
        ORU_LOG(Warning, "{} RLX file does not support real time decoding (RAW compression mode selected)", kTagInit);
        return;
    }
    if (rlxReader->getDecompressionPlatform()) {
        return;
    }
    if (mode == RLX_MODE_5 || mode == RLX_MODE_8 || mode == RLX_MODE_10) {
        initParameters.rlx_real_time = false;
        ORU_LOG(Warning, "{} Unsupported RLX real time mode with the current setup", kTagInit);
    }
}

/// Serial number, model and size; true when the file says that the image is flipped.
bool CameraOneImpl::readRecordedHeader() {
    bool flipped = false;
    cameraInformation.serial_number = 0;
    imageSize = {};
    if (rlxrw::IRLXWriter* header = rlxReader->v1(); header != nullptr) {
        cameraInformation.serial_number = header->getSerialNumber();
        imageSize = {static_cast<uint64_t>(header->getWidth()), static_cast<uint64_t>(header->getHeight())};
    } else if (const rlxrw::RlxHeaderV2* second = rlxReader->v2(); second != nullptr) {
        cameraInformation.serial_number = second->serial_number;
        imageSize = {static_cast<uint64_t>(second->width), static_cast<uint64_t>(second->height)};
        flipped = second->flipped;
    }
    cameraModel = rlxReader->getCameraModel();
    cameraInformation.model = cameraModel;
    return flipped;
}

void CameraOneImpl::readRecordedFacts() {
    cameraInformation.configuration.firmware_version = static_cast<uint32_t>(rlxReader->getCameraFwVersion());
    cameraInformation.sensors.firmware_version = static_cast<uint32_t>(rlxReader->getIMUDataVersion());
    if (rlxReader->hasIMUData()) {
        imuSource = INPUT_MODE_RECORDED;
    }
    cameraFps = static_cast<int32_t>(recordedFps());
    sharpnessFactor = static_cast<float>(1.0 + 0.5 * rlxReader->getSharpenIntVal());
    imuCalibration = rlxReader->getImuCalib();
}

}  // namespace oru
