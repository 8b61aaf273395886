#include <algorithm>

#include "collaborators/frame_metadata.hpp"
#include "collaborators/kit_functions.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"
#include "oru_koruone/clamped.hpp"
#include "oru_koruone/input_operations.hpp"
#include "tables/tables.hpp"

namespace oru {
namespace {

constexpr int kEndedFileCycles = 999;
constexpr int kWarmUpFrame = 3;
constexpr int kVersionWithoutCurrentSample = 1;

}  // namespace

constinit const CameraOneImpl::InputOperations CameraOneImpl::kRecordedInput{
    .type = INPUT_TYPE_RLX,
    .connect = [](CameraOneImpl& camera) { return camera.connectRecorded(); },
    .ask = [](CameraOneImpl& camera, InputFacts& facts) { return camera.askRecorded(facts); },
    .cycles_to_end = kEndedFileCycles,
    .next_image = [](CameraOneImpl& camera, bool flag) { return camera.nextImageOfRLX(flag); },
    .describe_frame = [](CameraOneImpl& camera, Timestamp time) { camera.describeRecordedFrame(time); },
    .counters =
        [](CameraOneImpl& camera) {
            return camera.hasRecordingModule() ? camera.playbackRecorder->counters(camera.queryContext())
                                               : FrameCounters{};
        },
    .frame_rate = [](const CameraOneImpl& camera) { return camera.recordedFps(); },
    .source_fps =
        [](const CameraOneImpl& camera) {
            return static_cast<uint32_t>(std::max(0, clampedTo<int32_t>(camera.recordedFps())));
        },
    .take_imu_packets =
        [](CameraOneImpl& camera, Timestamp) {
            return camera.rlxReader ? camera.rlxReader->getFrameIMUPackets() : std::vector<IMUPacket>();
        },
    .imu_to_camera = [](const CameraOneImpl& camera) { return camera.recordedImuToCamera(); },
    .gives_current_sample =
        [](CameraOneImpl& camera) {
            return !camera.rlxReader || camera.rlxReader->getRLXVersion() != kVersionWithoutCurrentSample;
        },
    .fetch_current_sample = [](CameraOneImpl& camera, IMUPacket& sample,
                               Eigen::Matrix4f& pose) { return camera.fetchRecordedSample(sample, pose); },
    .fetch_metadata_sample = [](CameraOneImpl& camera,
                                IMUPacket& sample) { return camera.fetchRecordedMetadata(sample); },
    .has_controls = false,
    .write_setting = [](CameraOneImpl&, VIDEO_SETTINGS, int, bool) { return SUCCESS; },
};

ERROR_CODE CameraOneImpl::askRecorded(InputFacts& facts) {
    const RecordedHeader header = readRecordedHeader();
    facts.serial_number = header.serial_number;
    facts.model = rlxReader->getCameraModel();
    facts.described_model = facts.model;
    if (!isDrivenModel(*facts.model)) {
        return NOT_SUPPORTED;
    }
    facts.image_size = header.image_size;
    facts.resolution = resolutionOf(*facts.image_size);
    initParameters.requested_resolution = *facts.resolution;
    if (initParameters.rlx_real_time) {
        checkRealTime();
    }
    facts.camera_firmware = static_cast<uint32_t>(rlxReader->getCameraFwVersion());
    facts.sensors_firmware = static_cast<uint32_t>(rlxReader->getIMUDataVersion());
    facts.has_imu = rlxReader->hasIMUData();
    facts.fps = clampedTo<int32_t>(recordedFps());
    facts.sharpness_factor = static_cast<float>(1.0 + 0.5 * rlxReader->getSharpenIntVal());
    facts.imu_calibration = rlxReader->getImuCalib();
    facts.flipped = header.flipped;
    rlxReader->setPosition(kWarmUpFrame);
    rlxReader->setPosition(0);
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

/// All zero without a file.
CameraOneImpl::RecordedHeader CameraOneImpl::readRecordedHeader() const {
    if (!rlxReader) {
        return {};
    }
    if (rlxrw::IRLXWriter* first = rlxReader->v1(); first != nullptr) {
        const Resolution size{static_cast<uint64_t>(first->getWidth()), static_cast<uint64_t>(first->getHeight())};
        return {first->getSerialNumber(), size, first->getfps(), false};
    }
    if (const rlxrw::RlxHeaderV2* second = rlxReader->v2(); second != nullptr) {
        const Resolution size{static_cast<uint64_t>(second->width), static_cast<uint64_t>(second->height)};
        return {second->serial_number, size, second->fps, second->flipped};
    }
    return {};
}

float CameraOneImpl::recordedFps() const {
    return readRecordedHeader().fps;
}

Eigen::Matrix4f CameraOneImpl::recordedImuToCamera() const {
    Eigen::Matrix4f pose = Eigen::Matrix4f::Identity();
    const Matrix4f* recorded = rlxReader ? rlxReader->getIMUCamTransform() : nullptr;
    if (recorded != nullptr && isTransformValid(*recorded)) {
        cvtMatrix4f(*recorded, pose);
    }
    return pose;
}

ERROR_CODE CameraOneImpl::fetchRecordedSample(IMUPacket& sample, Eigen::Matrix4f& imuToCameraPose) {
    if (!rlxReader || !rlxReader->getCurrentIMU(sample)) {
        return SENSOR_DATA_UNAVAILABLE;
    }
    imuToCameraPose = recordedImuToCamera();
    return SUCCESS;
}

bool CameraOneImpl::fetchRecordedMetadata(IMUPacket& sample) {
    if (!rlxReader) {
        return false;
    }
    rlxrw::rlxSampleMetadata metadata{};
    const bool found = rlxReader->getCurrentMetadata(metadata);
    const rlxrw::ImuPose pose = rlxrw::poseOf(metadata);
    sample.metadata_orientation = pose.orientation;
    sample.metadata_translation = pose.translation;
    return found;
}

void CameraOneImpl::describeRecordedFrame(Timestamp time) {
    frameInfo = {};
    frameInfo.known = FrameInfo::NUMBER | FrameInfo::CAPTURE_TIME;
    frameInfo.number = static_cast<uint64_t>(std::max(rlxReader->position() - 1, 0));
    frameInfo.capture_time = time;
}

}  // namespace oru
