#include "collaborators/kit_functions.hpp"
#include "oru_koruone/CameraOneImpl.hpp"
#include "oru_koruone/report.hpp"

namespace oru {

ERROR_CODE CameraOneImpl::enableRecording(const RecordingParameters& parameters) {
    ORU_RETURN_IF_CLOSED(INVALID_CALL);
    if (!hasRecordingModule()) {
        return NOT_SUPPORTED;
    }
    if (recordingEnabled.load(std::memory_order_acquire)) {
        disableRecording();
    }
    const rlxrw::RlxRecordingHeader source = recordingSource();
    const MutexLock lock(outputMutex);
    return playbackRecorder->enableRecording(frameContext(), parameters, source);
}

/// What a recording says of the open input.
rlxrw::RlxRecordingHeader CameraOneImpl::recordingSource() {
    rlxrw::RlxRecordingHeader source;
    source.serial_number = cameraInformation.serial_number;
    source.model = cameraModel;
    source.camera_fw = cameraInformation.configuration.firmware_version;
    source.sensors_fw = cameraInformation.sensors.firmware_version;
    source.imu_data_version = cameraInformation.sensors.firmware_version;
    source.width = static_cast<uint32_t>(imageSize.width);
    source.height = static_cast<uint32_t>(imageSize.height);
    source.fps = getCameraFPS();
    source.flipped = imageFlipped;
    source.has_imu = imuSource != INPUT_MODE_NONE;
    (void)readSharpness(source.sharpness);
    source.imu_calibration = imuCalibration;
    source.has_imu_to_camera = source.has_imu;
    cvtMatrix4f(imuToCamera(), source.imu_to_camera);
    return source;
}

void CameraOneImpl::disableRecording() {
    ORU_RETURN_IF_CLOSED();
    if (hasRecordingModule()) {
        const MutexLock lock(outputMutex);
        playbackRecorder->disableRecording(frameContext());
    }
}

void CameraOneImpl::pauseRecording(bool paused) {
    ORU_RETURN_IF_CLOSED();
    if (hasRecordingModule()) {
        const MutexLock lock(outputMutex);
        playbackRecorder->pauseRecording(frameContext(), paused);
    }
}

RecordingStatus CameraOneImpl::getRecordingStatus() {
    ORU_RETURN_IF_CLOSED(RecordingStatus{});
    if (!hasRecordingModule()) {
        return {};
    }
    const MutexLock lock(outputMutex);
    return playbackRecorder->getRecordingStatus(frameContext());
}

ERROR_CODE CameraOneImpl::setRLXPosition(int frame) {
    ORU_RETURN_IF_CLOSED(INVALID_CALL);
    if (!isPlayingRecording()) {
        return INVALID_CALL;
    }
    return playbackRecorder->setRLXPosition(frameContext(), frame);
}

ERROR_CODE CameraOneImpl::setRLXPositionAt(Timestamp time) {
    ORU_RETURN_IF_CLOSED(INVALID_CALL);
    if (!isPlayingRecording()) {
        return INVALID_CALL;
    }
    return playbackRecorder->setRLXPositionAt(frameContext(), time);
}

int CameraOneImpl::getRLXPosition() {
    ORU_RETURN_IF_CLOSED(0);
    return isPlayingRecording() ? playbackRecorder->getRLXPosition(queryContext()) : 0;
}

int CameraOneImpl::getRLXNumberOfFrames() {
    ORU_RETURN_IF_CLOSED(0);
    return isPlayingRecording() ? playbackRecorder->getRLXNumberOfFrames(queryContext()) : 0;
}

}  // namespace oru
