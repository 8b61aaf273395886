#include <utility>

#include "collaborators/frame_metadata.hpp"
#include "oru_koruone/CameraOneImpl.hpp"
#include "oru_koruone/relaxed.hpp"

namespace oru {
namespace {

constexpr uint8_t kLastFrameTimedState = 4;  // up to this state the sample takes the frame's time

}  // namespace

/// Views are drawn from the memory that was processed, and a frame that is refused must not change them.
void CameraOneImpl::leaveShownImage() {
    if (shownImage.alloc(imageSize, U8_C2, image.getMemoryType()) == SUCCESS && imageIsShown) {
        std::swap(image, shownImage);
        imageIsShown = false;
    }
}

FrameStatus CameraOneImpl::nextImageOfStream(bool /*flag*/) {
    if (!streamInput) {
        return SOURCE_UNAVAILABLE;
    }
    if (streamingEnabled.load(std::memory_order_acquire) && streamOutput) {
        streamOutput->waitingestYUVFrameProcessing();
    }
    leaveShownImage();
    if (!streamInput->readStreamData(image.getPtr<unsigned char>(CPU), nullptr)) {
        return NO_FRAME;
    }
    const Timestamp time = streamInput->frameTimestamp();
    image.timestamp = time;
    storeRelaxed(frameRateInspector.currentTimestamp, time);
    copyForRecorder();
    if (!streamInput->frameHasMetadata()) {
        return NEW_FRAME;
    }
    const rlxrw::rlxSampleMetadata metadata = streamInput->frameMetadata();
    {
        const MutexLock lock(imuMutex);
        rlxrw::convertMetadataToMCUData(metadata, currentImu);
        if (currentImu.sample_state <= kLastFrameTimedState) {
            currentImu.imu_timestamp = time;
        }
    }
    if (!rlxrw::hasSample(metadata)) {
        return NO_FRAME;
    }
    // Once more: the stream may have ended while the frame was read.
    if (streamingEnabled.load(std::memory_order_acquire) && streamOutput) {
        handOverToSender(metadata);
    }
    return NEW_FRAME;
}

}  // namespace oru
