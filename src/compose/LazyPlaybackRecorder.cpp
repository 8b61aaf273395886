#include "compose/LazyPlaybackRecorder.hpp"

#include "compose/modules/modules.hpp"

namespace oru {

PlaybackRecorder* LazyPlaybackRecorder::needed() {
    const MutexLock lock(making);
    if (real == nullptr) {
        if (const RecordingModule* module = recordingModule(); module != nullptr) {
            real = module->makePlaybackRecorder(systemClock, calibrationSource);
            published.store(real.get(), std::memory_order_release);
        }
    }
    return real.get();
}

PlaybackRecorder* LazyPlaybackRecorder::neededFor(const CameraFrameContext& camera) {
    PlaybackRecorder* recorder = made();
    return recorder == nullptr && camera.reader.getRLXVersion() != 0 ? needed() : recorder;
}

FrameStatus LazyPlaybackRecorder::nextImageOfRLX(CameraFrameContext camera, bool flag) {
    PlaybackRecorder* recorder = neededFor(camera);
    return recorder != nullptr ? recorder->nextImageOfRLX(camera, flag) : SOURCE_UNAVAILABLE;
}

void LazyPlaybackRecorder::handleRLXFrameRecording(CameraFrameContext camera) {
    if (PlaybackRecorder* recorder = neededFor(camera); recorder != nullptr) {
        recorder->handleRLXFrameRecording(camera);
    }
}

void LazyPlaybackRecorder::disableRecording(CameraFrameContext camera) {
    if (PlaybackRecorder* recorder = made(); recorder != nullptr) {
        recorder->disableRecording(camera);
        return;
    }
    camera.recordingEnabled.store(false, std::memory_order_release);
}

ERROR_CODE LazyPlaybackRecorder::enableRecording(CameraFrameContext camera, const RecordingParameters& parameters,
                                                 const rlxrw::RlxRecordingHeader& source) {
    PlaybackRecorder* recorder = needed();
    return recorder != nullptr ? recorder->enableRecording(camera, parameters, source) : NOT_SUPPORTED;
}

void LazyPlaybackRecorder::pauseRecording(CameraFrameContext camera, bool paused) {
    if (PlaybackRecorder* recorder = made(); recorder != nullptr) {
        recorder->pauseRecording(camera, paused);
    }
}

RecordingStatus LazyPlaybackRecorder::getRecordingStatus(CameraFrameContext camera) {
    PlaybackRecorder* recorder = made();
    return recorder != nullptr ? recorder->getRecordingStatus(camera) : camera.status;
}

ERROR_CODE LazyPlaybackRecorder::setRLXPosition(CameraFrameContext camera, int frame) {
    PlaybackRecorder* recorder = neededFor(camera);
    return recorder != nullptr ? recorder->setRLXPosition(camera, frame) : INVALID_CALL;
}

ERROR_CODE LazyPlaybackRecorder::setRLXPositionAt(CameraFrameContext camera, Timestamp time) {
    PlaybackRecorder* recorder = neededFor(camera);
    return recorder != nullptr ? recorder->setRLXPositionAt(camera, time) : INVALID_CALL;
}

}  // namespace oru
