#include "logging/KoruLogger.hpp"
#include "oru_koruone/CameraOneImpl.hpp"
#include "oru_koruone/GpuContextScope.hpp"

namespace oru {

CameraOneImpl::CameraOneImpl() : CameraOneImpl(CollaboratorFactory::processDefault()) {}

CameraOneImpl::CameraOneImpl(std::shared_ptr<CollaboratorFactory> factory) : collaborators(std::move(factory)) {
    // Built before the camera, so that a global camera finds its logger until the end.
    (void)KoruLogger::get_instance();
    grabber = collaborators->makeGrabber(INPUT_TYPE_PENDING);
    rectifier = collaborators->makeRectifier();
    rlxRecorder = collaborators->makeRlxVideo(CollaboratorFactory::RlxRole::recorder);
    rlxReader = collaborators->makeRlxVideo(CollaboratorFactory::RlxRole::reader);
    playbackRecorder = collaborators->makePlaybackRecorder();
    resetVariables();
}

CameraOneImpl::~CameraOneImpl() {
    (void)close();
    playbackRecorder.reset();
    streamInput.reset();
    destroySender();
    releaseCudaStream();
}

void CameraOneImpl::resetVariables() {
    opened.store(false, std::memory_order_release);
    recordingEnabled.store(false, std::memory_order_release);
    streamingEnabled.store(false, std::memory_order_release);
    recordingStateFlag.store(false, std::memory_order_release);
    imuRateLastTimestamp = 0;
    lastImuTimestamp = 0;
    image.free(CPU_AND_GPU);
    shownImage.free(CPU_AND_GPU);
    imageIsShown = false;
    frameInfo = {};
    imuRateCount = 0;
    imuRateAverage = 0.0;
    imuRateEstimate = 0.0;
    imuRateNominal = 400;
    imageSize = {};
    imuRateSmoothing = 0.9975;
}

ERROR_CODE CameraOneImpl::close() {
    waitForSender();
    if (recordingEnabled.load(std::memory_order_acquire)) {
        disableRecording();
    }
    if (rlxReader) {
        rlxReader->close();
    }
    if (rlxRecorder) {
        rlxRecorder->close();
    }
    resetVariables();
    if (grabber) {
        grabber->close(true);
        grabber.reset();
    }
    freeRectifier();
    return SUCCESS;
}

/// What a second open() ends first. On a closed camera only the sender's last frame is waited for.
void CameraOneImpl::leavePreviousOpening() {
    waitForSender();
    if (!isOpened()) {
        return;
    }
    if (recordingEnabled.load(std::memory_order_acquire)) {
        disableRecording();
    }
    {
        const MutexLock lock(outputMutex);
        destroySender();
    }
    if (grabber) {
        grabber->close(true);
    }
    freeRectifier();
}

void CameraOneImpl::waitForSender() {
    if (streamOutput) {
        streamOutput->waitingestYUVFrameProcessing();
    }
}

/// The one place where a sender ends: its grabber may go only after it.
void CameraOneImpl::destroySender() {
    streamOutput.reset();
    streamGrabber.reset();
}

void CameraOneImpl::freeRectifier() {
    const GpuContextScope context(collaborators->gpu(), initParameters.cuda_context);
    rectifier->free();
}

void CameraOneImpl::releaseCudaStream() {
    if (cudaStream != nullptr) {
        (void)collaborators->gpu().cudaStreamDestroy(cudaStream);
        cudaStream = nullptr;
    }
}

}  // namespace oru
