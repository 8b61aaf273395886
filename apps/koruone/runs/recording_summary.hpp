#pragma once

#include <optional>
#include <string>

#include "oru/RecordedFile.hpp"
#include "shared/exit_status.hpp"
#include "shared/json_output.hpp"

namespace koruone {

/// What a recording holds.
struct RecordingSummary {
    std::string file;
    oru::RECORDING_CONDITION condition = oru::RECORDING_CONDITION::MISSING;
    bool playable = false;  ///< it has a whole index
    oru::RecordingFacts facts;
    uint64_t bytes = 0;
    uint64_t frames = 0;
    oru::Timestamp start = 0;                 ///< of the first frame; 0 where that is not known
    double seconds = 0.0;                     ///< from the first frame to the last
    std::optional<oru::RecordingCheck> read;  ///< what reading every byte found
};

/// Fills `summary`, with every byte read where that is asked for. EXIT_FAILED: no recording, and that has been said;
/// EXIT_DAMAGED: there is a summary, but not every frame can be played.
ExitStatus summariseRecording(const std::string& file, bool readAll, RecordingSummary& summary);

std::string recordingText(const RecordingSummary& summary);
Json recordingJson(const RecordingSummary& summary);

}  // namespace koruone
