#pragma once

#include <memory>

#include "collaborators/CalibrationSource.hpp"
#include "collaborators/PlaybackRecorder.hpp"
#include "collaborators/RLXVideo.hpp"
#include "collaborators/RecordingTools.hpp"
#include "utils/Clock.hpp"

namespace oru {

/// Reader and recorder of RLX files; one object serves either role. Opening a file offers its calibration text.
/// `calibration` outlives what is made.
[[nodiscard]] std::unique_ptr<rlxrw::RLXVideo> makeRlxVideo(CalibrationSource& calibration);

/// The camera's recording and playback. Both arguments outlive what is made.
[[nodiscard]] std::unique_ptr<PlaybackRecorder> makePlaybackRecorder(Clock& clock, CalibrationSource& calibration);

/// What can be done with recordings without a camera.
[[nodiscard]] std::unique_ptr<RecordingTools> makeRecordingTools();

}  // namespace oru
