#include "oru_koruone/input_operations.hpp"

namespace oru {
namespace {

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
    const InputOperations& source = input();
    const int budget = fastFail ? source.fast_fail_cycles : source.cycles;
    for (int cycle = 0; cycle < budget; ++cycle) {
        if (cycle > source.cycles_to_end && status == NO_FRAME) {
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
    return input().next_image(*this, flag);
}

FrameStatus CameraOneImpl::nextImageOfRLX(bool flag) {
    return hasRecordingModule() ? playbackRecorder->nextImageOfRLX(frameContext(), flag) : SOURCE_UNAVAILABLE;
}

}  // namespace oru
