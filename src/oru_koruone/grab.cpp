#include "oru_koruone/CameraOneImpl.hpp"

namespace oru {
namespace {

constexpr int kStreamCycles = 250;
constexpr int kFastFailCycles = 50;
constexpr int kCycles = 5000;
constexpr int kEndedFileCycles = 999;
constexpr timespec kPause{0, 250'000};

}  // namespace

ERROR_CODE CameraOneImpl::grab() {
    if (!grabMutex.try_lock()) {
        return isOpened() ? CAMERA_NOT_READY : CAMERA_UNAVAILABLE;
    }
    const MutexLock admission(grabMutex, std::adopt_lock);
    if (!isOpened()) {
        return CAMERA_UNAVAILABLE;
    }
    const ERROR_CODE taken = takeFrame();
    if (taken == SUCCESS) {
        processNewFrame();
    }
    return taken;
}

ERROR_CODE CameraOneImpl::takeFrame() {
    FrameStatus status = nextImage(false);
    if (status == NEW_FRAME) {
        return SUCCESS;
    }
    if (status == INPUT_ENDED) {
        return END_OF_INPUT;
    }
    const bool fastFail = initParameters.fast_fail_grab;
    const int liveCycles = fastFail && inputMode == INPUT_MODE_LIVE ? kFastFailCycles : kCycles;
    const int budget = inputMode == INPUT_MODE_STREAM ? kStreamCycles : liveCycles;
    for (int cycle = 0; cycle < budget; ++cycle) {
        if (cycle > kEndedFileCycles && status == NO_FRAME && inputMode == INPUT_MODE_RECORDED) {
            return END_OF_INPUT;
        }
        status = nextImage(false);
        if (status == NEW_FRAME) {
            return SUCCESS;
        }
        pauseBetweenAttempts();
        if (status == INPUT_ENDED) {
            return END_OF_INPUT;
        }
        if (status == SOURCE_UNAVAILABLE || status == SOURCE_ERROR) {
            return fastFail ? CAMERA_UNAVAILABLE : FAILURE;
        }
    }
    return CAMERA_NOT_READY;
}

void CameraOneImpl::pauseBetweenAttempts() {
    timespec pause = kPause;
    timespec rest{};
    while (collaborators->clock().nanosleep(pause, &rest) != 0 && (rest.tv_sec > 0 || rest.tv_nsec > 0)) {
        pause = rest;
        rest = {};
    }
}

FrameStatus CameraOneImpl::nextImage(bool flag) {
    switch (inputMode) {
        case INPUT_MODE_RECORDED:
            return nextImageOfRLX(flag);
        case INPUT_MODE_STREAM:
            return nextImageOfStream(flag);
        case INPUT_MODE_LIVE:
            return nextImageOfGMSL(flag);
        default:
            return nextImageOfLive(flag);
    }
}

FrameStatus CameraOneImpl::nextImageOfRLX(bool flag) {
    return hasRecordingModule() ? playbackRecorder->nextImageOfRLX(frameContext(), flag) : SOURCE_UNAVAILABLE;
}

}  // namespace oru
