#pragma once

#include <string>

#include "oru/recording.hpp"

namespace koruone {

/// What to do about a recording in that condition, as the end of a sentence.
std::string recordingAdvice(oru::RECORDING_CONDITION condition, const std::string& file);

/// "FILE is empty (RLX_FILE_UNREADABLE); name another recording." on standard error.
void complainOfRecording(oru::RECORDING_CONDITION condition, const std::string& file);

}  // namespace koruone
