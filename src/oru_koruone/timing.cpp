#include "oru_koruone/input_operations.hpp"
#include "oru_koruone/relaxed.hpp"

namespace oru {

Timestamp CameraOneImpl::getTimestamp(TIME_REFERENCE reference) const {
    switch (reference) {
        case IMAGE:
            return loadRelaxed(frameRateInspector.currentTimestamp);
        case CURRENT:
            return collaborators->clock().systemNanoseconds();
        default:
            return 0;
    }
}

float CameraOneImpl::getCameraFPS() const {
    return input().frame_rate(*this);
}

float CameraOneImpl::getCurrentFPS() const {
    return loadRelaxed(actualFrameRateInspector.currentFps);
}

FrameCounters CameraOneImpl::getFrameCounters() {
    return input().counters(*this);
}

FrameInfo CameraOneImpl::getFrameInfo() const {
    return frameInfo;
}

}  // namespace oru
