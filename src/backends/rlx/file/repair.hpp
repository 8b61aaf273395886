#pragma once

#include <cstdint>
#include <string>

#include "backends/rlx/file/scan.hpp"
#include "collaborators/RLXVideo.hpp"

namespace oru::rlx {

/// Makes every whole frame of a damaged recording playable again, in place when `output` is empty. An input that is
/// intact, cannot be repaired or holds no whole frame stays untouched. An existing output is refused. At any
/// interruption the input can still be repaired. Threads: any; the file is locked alone meanwhile.
[[nodiscard]] RecordingRepair repairRecording(const std::string& input, const std::string& output, ImageCheck check,
                                              const RecordingProgress& progress = {});

/// Checks every byte.
[[nodiscard]] RecordingCheck verifyRecording(const std::string& path, const RecordingProgress& progress = {});

}  // namespace oru::rlx
