#include "backends/rlx/finish.hpp"

#include <algorithm>

#include "backends/rlx/ebml.hpp"

namespace oru::rlx {

bool finishRecording(File& file, const HeaderRecord& header, const std::vector<IndexEntry>& entries,
                     uint64_t clusters_end) {
    const Bytes trailer = buildTrailer(header, entries, clusters_end);
    const uint64_t size = clusters_end + trailer.size();
    const uint64_t last_ms = entries.empty() ? 0 : entries.back().time_ms;
    Bytes head = buildHead(header, finishedFacts(header, last_ms, clusters_end, size));
    const Bytes size_field(head.begin() + static_cast<std::ptrdiff_t>(segmentSizeOffset()),
                           head.begin() + static_cast<std::ptrdiff_t>(segmentBodyOffset()));
    Bytes unknown;
    putSize(unknown, kUnknownSize);
    std::copy(unknown.begin(), unknown.end(), head.begin() + static_cast<std::ptrdiff_t>(segmentSizeOffset()));
    return file.resize(clusters_end) && file.writeAt(clusters_end, trailer) && file.syncData() &&
           file.writeAt(0, head) && file.syncData() && file.writeAt(segmentSizeOffset(), size_field) && file.syncData();
}

}  // namespace oru::rlx
