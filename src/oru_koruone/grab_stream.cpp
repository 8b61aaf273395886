#include <algorithm>
#include <array>
#include <cstring>

#include "collaborators/kit_functions.hpp"
#include "oru_koruone/CameraOneImpl.hpp"
#include "oru_koruone/relaxed.hpp"

namespace oru {
namespace {

constexpr std::size_t kSampleStateOffset = 16;
constexpr unsigned char kLastFrameTimedState = 4;  // up to this state the sample takes the frame's time

/// Four zeros instead of a quaternion: the sender had no sample for the frame.
bool hasOrientation(const rlxrw::rlxSampleMetadata& metadata) {
    std::array<float, 4> q{};
    std::memcpy(q.data(), metadata.bytes, sizeof(q));
    return std::any_of(q.begin(), q.end(), [](float component) { return component != 0.0F; });
}

}  // namespace

FrameStatus CameraOneImpl::nextImageOfStream(bool /*flag*/) {
    if (!streamInput) {
        return SOURCE_UNAVAILABLE;
    }
    const bool relaying = streamingEnabled.load(std::memory_order_acquire) && streamOutput;
    if (relaying) {
        streamOutput->waitingestYUVFrameProcessing();
    }
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
        if (metadata.bytes[kSampleStateOffset] <= kLastFrameTimedState) {
            currentImu.imu_timestamp = time;
        }
    }
    if (!hasOrientation(metadata)) {
        return NO_FRAME;
    }
    if (relaying) {
        handOverToSender(metadata);
    }
    return NEW_FRAME;
}

}  // namespace oru
