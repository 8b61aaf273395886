#include "backends/rlx/file/finalise.hpp"

#include <algorithm>

#include "backends/rlx/container/ebml.hpp"

namespace oru::rlx {

bool finaliseRecording(File& file, const HeaderRecord& header, const std::vector<IndexEntry>& entries,
                       uint64_t clustersEnd) {
    const Bytes trailer = buildTrailer(header, entries, clustersEnd);
    const uint64_t size = clustersEnd + trailer.size();
    const uint64_t lastMs = entries.empty() ? 0 : entries.back().time_ms;
    Bytes head = buildHead(header, finishedFacts(header, lastMs, clustersEnd, size));
    const Bytes sizeField(head.begin() + static_cast<std::ptrdiff_t>(segmentSizeOffset()),
                          head.begin() + static_cast<std::ptrdiff_t>(segmentBodyOffset()));
    Bytes unknown;
    putSize(unknown, kUnknownSize);
    std::copy(unknown.begin(), unknown.end(), head.begin() + static_cast<std::ptrdiff_t>(segmentSizeOffset()));
    return file.resize(clustersEnd) && file.writeAt(clustersEnd, trailer) && file.syncData() && file.writeAt(0, head) &&
           file.syncData() && file.writeAt(segmentSizeOffset(), sizeField) && file.syncData();
}

}  // namespace oru::rlx
