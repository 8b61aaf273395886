#pragma once

#include <cstdint>
#include <string>

#include "backends/rlx/file/scan.hpp"
#include "collaborators/RLXVideo.hpp"

namespace oru::rlx {

/// Makes every whole frame of a damaged recording playable again, in place when `output` is empty; with an output the
/// input is only read. An input that is intact, cannot be repaired, holds no whole frame or, in place, is being written
/// by anybody stays untouched. An existing output is refused. At any interruption the input can still be repaired.
/// `original`, unless null: what a repair in place takes more than the index from is first copied to a file beside it,
/// whose name is put here. Threads: any; the input is locked meanwhile.
[[nodiscard]] RecordingRepair repairRecording(const std::string& input, const std::string& output, ImageCheck check,
                                              const RecordingProgress& progress = {}, std::string* original = nullptr);

/// Checks every byte.
[[nodiscard]] RecordingCheck verifyRecording(const std::string& path, const RecordingProgress& progress = {});

}  // namespace oru::rlx
