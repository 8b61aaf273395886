#pragma once

#include <cstdint>
#include <string>

#include "backends/rlx/file/scan.hpp"

namespace oru::rlx {

/// Result of repairRecording, with the codes of RLXVideo::repairFile.
struct RepairReport {
    /// 0 repaired or already intact, 1 input unreadable, 2 output not creatable, disk full or no room in place for the
    /// head of this header, 3 compression
    int code = 1;
    Condition condition = Condition::MISSING;  ///< of the input
    uint64_t frames_recovered = 0;
    uint64_t frames_lost = 0;  ///< known to have been in the file: bad images and missing numbers
    bool frame_cut = false;    ///< behind the last whole frame there was at least one more
    uint64_t bytes_cut = 0;    ///< behind the last whole frame
};

/// Makes every whole frame of a damaged recording playable again, in place when `output` is empty. An input that is
/// intact, cannot be repaired or holds no whole frame stays untouched. An existing output is refused. At any
/// interruption the input can still be repaired. Threads: any; the file is locked alone meanwhile.
[[nodiscard]] RepairReport repairRecording(const std::string& input, const std::string& output, ImageCheck check,
                                           const ProgressSink& progress = {});

/// What a check of every byte found.
struct VerifyReport {
    Condition condition = Condition::MISSING;
    uint64_t frames = 0;   ///< whole ones
    uint64_t damaged = 0;  ///< in the index, but not whole; or missing
    uint64_t imu_packets = 0;
};
[[nodiscard]] VerifyReport verifyRecording(const std::string& path, const ProgressSink& progress = {});

}  // namespace oru::rlx
