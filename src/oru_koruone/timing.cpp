#include "oru_koruone/CameraOneImpl.hpp"
#include "oru_koruone/relaxed.hpp"

namespace oru {
namespace {

constexpr float kRateOfUnknownInput = 120.0F;

}  // namespace

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
    switch (inputMode) {
        case INPUT_MODE_NONE:
        case INPUT_MODE_LIVE:
            return static_cast<float>(static_cast<uint32_t>(cameraFps));
        case INPUT_MODE_RECORDED:
            return recordedFps();
        case INPUT_MODE_STREAM:
            return streamInput ? static_cast<float>(streamInput->announcedFps()) : 0.0F;
        default:
            return kRateOfUnknownInput;
    }
}

float CameraOneImpl::recordedFps() const {
    if (!rlxReader) {
        return 0.0F;
    }
    if (rlxrw::IRLXWriter* header = rlxReader->v1(); header != nullptr) {
        return header->getfps();
    }
    const rlxrw::RlxHeaderV2* header = rlxReader->v2();
    return header == nullptr ? 0.0F : header->fps;
}

float CameraOneImpl::getCurrentFPS() const {
    return loadRelaxed(actualFrameRateInspector.currentFps);
}

FrameCounters CameraOneImpl::getFrameCounters() {
    switch (inputMode) {
        case INPUT_MODE_LIVE:
            return grabber ? grabber->counters() : FrameCounters{};
        case INPUT_MODE_RECORDED:
            return hasRecordingModule() ? playbackRecorder->counters(frameContext()) : FrameCounters{};
        case INPUT_MODE_STREAM:
            return streamInput ? streamInput->counters() : FrameCounters{};
        default:
            return {};
    }
}

}  // namespace oru
