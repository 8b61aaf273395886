#pragma once

#include <string>
#include <vector>

#include "backends/rlx/file/open_recording.hpp"

namespace oru::rlx {

/// A recording as a reader takes it, never written to. One that only lacks its end, because it was cut off or is still
/// being recorded or copied, is read by a scan. A rate that no camera has becomes 0: the head cannot be compared or
/// built from what is opened any more.
struct PlayableRecording {
    OpenedFile opened;
    Condition condition = Condition::MISSING;
    std::vector<IndexEntry> entries;
    bool whole = false;  ///< nothing before the last whole frame is damaged; there may be no frame yet
    uint64_t end = 0;    ///< of the last whole frame

    [[nodiscard]] bool plays() const { return whole && !entries.empty(); }
};
[[nodiscard]] PlayableRecording openToPlay(const std::string& path);

}  // namespace oru::rlx
