#include "collaborators/kit_functions.hpp"
#include "logging/log.hpp"
#include "oru_koruone/GpuContextScope.hpp"
#include "oru_koruone/imu_frame.hpp"
#include "oru_koruone/input_operations.hpp"

namespace oru {

void CameraOneImpl::processNewFrame() {
    actualFrameRateInspector.update(collaborators->clock().systemNanoseconds());
    ORU_LOG(Debug, "Grab new frame");
    const Timestamp imageTime = frameRateInspector.currentTimestamp;
    input().describe_frame(*this, imageTime);
    std::vector<IMUPacket> packets = operationsOf(imuSource).take_imu_packets(*this, imageTime);
    forwardImuPackets(packets);
    if (imuSource != INPUT_MODE_NONE) {
        updateIMUdata();
    }
    frameRateInspector.update();
    lastImuTimestamp = imageTime;
    {
        const MutexLock lock(imuMutex);
        frameImuPackets.swap(packets);
    }
    const GpuContextScope context(collaborators->gpu(), initParameters.cuda_context);
    rectifier->process(image, cudaStream);
    imageIsShown = true;
}

void CameraOneImpl::forwardImuPackets(const std::vector<IMUPacket>& packets) {
    const MutexLock lock(outputMutex);
    const bool recording = recordingEnabled.load(std::memory_order_acquire);
    if (!recording && !streamOutput) {
        return;
    }
    rlxrw::RLXVideo* recorder = recording ? activeRecorder() : nullptr;
    UDPOutput* sender = streamOutput && streamOutput->carriesImu() ? streamOutput.get() : nullptr;
    uint64_t previous = 0;
    for (const IMUPacket& packet : packets) {
        if (packet.imu_timestamp == previous) {
            continue;
        }
        previous = packet.imu_timestamp;
        if (recorder != nullptr) {
            recorder->writeCurrentIMU(packet);
        }
        if (sender != nullptr) {
            sender->ingestIMU(packet);
        }
    }
    handleRLXFrameRecording();
}

rlxrw::RLXVideo* CameraOneImpl::activeRecorder() {
    return streamInput ? &streamInput->recorder() : rlxRecorder.get();
}

void CameraOneImpl::handleRLXFrameRecording() {
    if (hasRecordingModule()) {
        playbackRecorder->handleRLXFrameRecording(frameContext());
    }
}

CameraFrameContext CameraOneImpl::frameContext(UDPOutput* sender) ORU_NO_THREAD_SAFETY_ANALYSIS {
    return {image,
            frameRateInspector.currentTimestamp,
            currentImu,
            imuMutex,
            *rlxReader,
            *activeRecorder(),
            streamInput.get(),
            sender,
            recordingEnabled,
            streamingEnabled,
            recordingStateFlag,
            recordingParameters,
            recordingStatus,
            recordingFrameBuffer,
            initParameters,
            cameraInformation,
            imageSize};
}

/// A sample that no new one has replaced is turned again when the image is flipped.
void CameraOneImpl::updateIMUdata() {
    const MutexLock lock(imuMutex);
    imuPoseMatrix = samplePose(currentImu);
    if (imageFlipped) {
        imuPoseMatrix = imuPoseMatrix * kHalfTurnAboutZ;
        storePose(imuPoseMatrix, currentImu);
    }
}

}  // namespace oru
