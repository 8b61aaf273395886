#include <cstring>

#include "collaborators/frame_metadata.hpp"
#include "oru_koruone/CameraOneImpl.hpp"
#include "oru_koruone/relaxed.hpp"

namespace oru {
namespace {

constexpr int kWaitMs = 100;
constexpr std::size_t kBytesPerPixel = 2;

/// The grabber's frame stays as it is for a scope.
class HeldFrame {
public:
    explicit HeldFrame(LiveCameraGrabber& grabber) : holder(grabber) { holder.enterCriticalSection(); }
    ~HeldFrame() { holder.exitCriticalSection(); }
    HeldFrame(const HeldFrame&) = delete;
    HeldFrame& operator=(const HeldFrame&) = delete;

private:
    LiveCameraGrabber& holder;
};

}  // namespace

FrameStatus CameraOneImpl::nextImageOfLive(bool /*flag*/) {
    return SOURCE_UNAVAILABLE;
}

FrameStatus CameraOneImpl::nextImageOfGMSL(bool /*flag*/) {
    if (!grabber) {
        return SOURCE_UNAVAILABLE;
    }
    (void)grabber->waitForNewFrame(kWaitMs);
    const FrameStatus status = grabber->getFrameStatus();
    return status == NEW_FRAME ? takeLiveFrame() : status;
}

FrameStatus CameraOneImpl::takeLiveFrame() {
    copyLiveFrame();
    copyForRecorder();
    if (!streamingEnabled.load(std::memory_order_acquire) || !streamOutput) {
        return NEW_FRAME;
    }
    if (streamOutput->isBusy()) {
        streamOutput->noteSkippedFrame();
        return NEW_FRAME;
    }
    handOverToSender(liveMetadata());
    return NEW_FRAME;
}

void CameraOneImpl::copyLiveFrame() {
    const HeldFrame held(*grabber);
    auto* destination = image.getPtr<unsigned char>(CPU);
    if (const unsigned char* pixels = grabber->getPixels(); pixels != nullptr && destination != nullptr) {
        // The copy ignores the row step: the grabber delivers one contiguous block.
        std::memcpy(destination, pixels, imageSize.area() * kBytesPerPixel);
    }
    image.timestamp = grabber->getTimeStamp();
    if (imuSource == INPUT_MODE_LIVE && grabber->getMCU() != nullptr) {
        const MutexLock lock(imuMutex);
        if (const IMUPacket* packet = grabber->getIMUPacket(); packet != nullptr) {
            currentImu = *packet;
        }
    }
    storeRelaxed(frameRateInspector.currentTimestamp, grabber->getTimeStamp());
    if (!grabber->getFrameInfo(frameInfo)) {
        frameInfo = {};
        frameInfo.known = FrameInfo::CAPTURE_TIME;
        frameInfo.capture_time = image.timestamp;
    }
    grabber->afterGrab();
}

void CameraOneImpl::copyForRecorder() {
    const auto* pixels = image.getPtr<unsigned char>(CPU);
    if (recordingEnabled.load(std::memory_order_acquire) && recordingFrameBuffer != nullptr && pixels != nullptr) {
        std::memcpy(recordingFrameBuffer, pixels, image.getStepBytes(CPU) * image.getHeight());
    }
}

rlxrw::rlxSampleMetadata CameraOneImpl::liveMetadata() {
    rlxrw::rlxSampleMetadata metadata{};
    KORUmcu* mcu = grabber->getMCU();
    if (imuSource != INPUT_MODE_LIVE || mcu == nullptr) {
        return metadata;
    }
    {
        const MutexLock lock(imuMutex);
        rlxrw::convertMetadataFromMCUData(metadata, currentImu);
    }
    rlxrw::setPose(metadata, mcu->getIMUCameraTransform());
    return metadata;
}

void CameraOneImpl::handOverToSender(const rlxrw::rlxSampleMetadata& metadata) {
    auto* pixels = image.getPtr<unsigned char>(CPU);
    if (pixels == nullptr) {
        return;
    }
    streamOutput->asyncingestYUVFrame(pixels, frameRateInspector.currentTimestamp, metadata,
                                      static_cast<int>(image.getHeight() * image.getStepBytes(CPU)));
}

}  // namespace oru
