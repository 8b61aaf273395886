#pragma once

#include <vector>

#include "backends/rlx/container/container.hpp"
#include "backends/rlx/file/File.hpp"

namespace oru::rlx {

/// Ends a recording whose Clusters end at `clusters_end`: cuts what follows, appends Cues and index, completes the head
/// and at last the Segment's size, each on the disk before the next. Whenever it is interrupted the file counts as
/// unfinished and can be repaired. False with errno when the disk refuses.
[[nodiscard]] bool finaliseRecording(File& file, const HeaderRecord& header, const std::vector<IndexEntry>& entries,
                                     uint64_t clustersEnd);

}  // namespace oru::rlx
