#pragma once

#include <memory>
#include <string>

#include "backends/calibration_fetch/download.hpp"
#include "backends/virtual_bus/footage/FootageDecoder.hpp"
#include "collaborators/CalibrationSource.hpp"
#include "collaborators/PlaybackRecorder.hpp"
#include "collaborators/RLXVideo.hpp"
#include "collaborators/RecordingTools.hpp"
#include "collaborators/UDPInput.hpp"
#include "collaborators/UDPOutput.hpp"
#include "utils/Clock.hpp"

namespace oru {

/// What a module gives the library: functions that live as long as the process. Threads: any.
struct ModuleTable {};

/// Both ends of the network stream; see backends/stream/stream_factory.hpp.
struct StreamModule : ModuleTable {
    std::unique_ptr<UDPInput> (*makeReceiver)(Clock& clock, CalibrationSource& calibration,
                                              std::unique_ptr<rlxrw::RLXVideo> recorder, bool verbose);
    std::unique_ptr<UDPOutput> (*makeSender)(Clock& clock, CalibrationSource& calibration, bool verbose);
};

/// Recorded files; see backends/rlx/rlx_factory.hpp.
struct RecordingModule : ModuleTable {
    std::unique_ptr<rlxrw::RLXVideo> (*makeVideo)(CalibrationSource& calibration);
    std::unique_ptr<PlaybackRecorder> (*makePlaybackRecorder)(Clock& clock, CalibrationSource& calibration);
    std::unique_ptr<RecordingTools> (*makeTools)();
};

/// Fetching a calibration from an address.
struct CalibrationModule : ModuleTable {
    DownloadText download;
};

/// Image and video files in front of a virtual camera.
struct FootageModule : ModuleTable {
    std::unique_ptr<virtual_bus::FootageDecoder> (*makeDecoder)();
};

/// The one C function of each module. It makes the settings of the module's libraries, once for the process.
/// Null when the module was built for another version of the library than `version`.
extern "C" {
const ModuleTable* oru_koruone_module_stream(unsigned version);
const ModuleTable* oru_koruone_module_recording(unsigned version);
const ModuleTable* oru_koruone_module_calibration(unsigned version);
const ModuleTable* oru_koruone_module_footage(unsigned version);
}

}  // namespace oru
