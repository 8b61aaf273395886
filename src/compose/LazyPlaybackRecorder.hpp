#pragma once

#include <atomic>
#include <memory>

#include "collaborators/CalibrationSource.hpp"
#include "collaborators/PlaybackRecorder.hpp"
#include "utils/Clock.hpp"
#include "utils/Mutex.hpp"

namespace oru {

/// Recording and playback by the recording module, which is loaded when a file plays or a recording starts; before, it
/// answers as one that does neither. Threads: as PlaybackRecorder says.
class LazyPlaybackRecorder final : public PlaybackRecorder {
public:
    LazyPlaybackRecorder(Clock& clock, CalibrationSource& calibration)
        : systemClock(clock), calibrationSource(calibration) {}

    FrameStatus nextImageOfRLX(CameraFrameContext camera, bool flag) override;
    void handleRLXFrameRecording(CameraFrameContext camera) override;
    void disableRecording(CameraFrameContext camera) override;
    /// NOT_SUPPORTED without the module.
    ERROR_CODE enableRecording(CameraFrameContext camera, const RecordingParameters& parameters,
                               const rlxrw::RlxRecordingHeader& source) override;
    void pauseRecording(CameraFrameContext camera, bool paused) override;
    RecordingStatus getRecordingStatus(CameraFrameContext camera) override;
    ERROR_CODE setRLXPosition(CameraFrameContext camera, int frame) override;
    ERROR_CODE setRLXPositionAt(CameraFrameContext camera, Timestamp time) override;
    int getRLXPosition(CameraFrameContext camera) override { return camera.reader.position(); }
    int getRLXNumberOfFrames(CameraFrameContext camera) override { return camera.reader.frameCount(); }

private:
    /// Null before the module was needed.
    [[nodiscard]] PlaybackRecorder* made() const { return published.load(std::memory_order_acquire); }
    /// Null without the module.
    PlaybackRecorder* needed() ORU_EXCLUDES(making);
    /// Null unless it was made already or a file is open, whose module is there.
    PlaybackRecorder* neededFor(const CameraFrameContext& camera);

    Clock& systemClock;
    CalibrationSource& calibrationSource;
    Mutex making;  // a grab and a recording's start may both need it first
    std::unique_ptr<PlaybackRecorder> real ORU_GUARDED_BY(making);
    std::atomic<PlaybackRecorder*> published{nullptr};
};

}  // namespace oru
