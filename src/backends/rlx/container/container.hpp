#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "backends/rlx/records/records.hpp"
#include "utils/bytes.hpp"

namespace oru::rlx {

// A recording is: head, one Cluster for each frame, Cues, a Tags element with the frame index. Head, framing and Cues
// follow from the records byte for byte, so that a reader checks them by building them again.

/// What the head says once the recording is finished.
struct Finished {
    uint64_t segment_size = 0;  ///< bytes from the Segment's body to the end of the file
    uint64_t duration_ms = 0;
    uint64_t cues_offset = 0;  ///< from the start of the file
};

/// What the head of a finished recording says; the last Cluster ends at `clusters_end`.
[[nodiscard]] Finished finishedFacts(const HeaderRecord& header, uint64_t lastTimeMs, uint64_t clustersEnd,
                                     uint64_t fileSize);

/// The head of a file; unfinished without `finished`. Its length does not depend on `finished`.
[[nodiscard]] Bytes buildHead(const HeaderRecord& header, const std::optional<Finished>& finished);

/// Offset of the eight bytes of the Segment's size, and of its body.
[[nodiscard]] std::size_t segmentSizeOffset();
[[nodiscard]] std::size_t segmentBodyOffset();
/// Offset of the eight big-endian bytes in a finished head that say where the Cues begin, counted from the body.
[[nodiscard]] std::size_t cuesPositionOffset();

/// Bytes before and after the image in a frame's Cluster.
inline constexpr std::size_t kPrefixSize = 51;
void buildPrefix(const FrameRecord& frame, std::size_t recordSize, Bytes& out);
void buildSuffixFraming(const FrameRecord& frame, std::size_t recordSize, Bytes& out);
[[nodiscard]] std::size_t suffixFramingSize(bool key);
[[nodiscard]] std::size_t clusterSize(const FrameRecord& frame, std::size_t recordSize);

/// Where one Cluster's parts lie, from its first bytes.
struct ClusterShape {
    uint64_t total = 0;       ///< bytes of the Cluster
    uint64_t image_size = 0;  ///< bytes of the stored image
};
/// The shape that `prefix` (kPrefixSize bytes) claims; nothing unless it is that of a frame's Cluster.
[[nodiscard]] std::optional<ClusterShape> readPrefix(ByteView prefix);
/// Bytes of the smallest Cluster of a frame, and of what suffixBegins() looks at.
inline constexpr std::size_t kMinClusterSize = kPrefixSize + 45 + kMinRecordSize;
inline constexpr std::size_t kSuffixStartSize = 62 + kFrameStartSize;
/// Whether `start`, the first kSuffixStartSize bytes after the image, of `size`, can belong to a frame of this
/// recording: the framing is compared byte for byte, no checksum looked at. Fills the first fields of `frame`.
[[nodiscard]] bool suffixBegins(ByteView prefix, ByteView start, uint64_t size, uint64_t recordingId,
                                FrameRecord& frame, Bytes& scratch);
/// The same, and decodes the record at the end of `suffix`, all bytes after the image.
[[nodiscard]] bool readSuffix(ByteView prefix, ByteView suffix, uint64_t recordingId, FrameRecord& frame,
                              Bytes& scratch);

struct IndexEntry {
    uint64_t offset = 0;  ///< of the Cluster, from the start of the file
    uint64_t time_ns = 0;
    uint32_t cluster_size = 0;
    bool key = true;
    uint64_t time_ms = 0;  ///< container time

    friend bool operator==(const IndexEntry&, const IndexEntry&) = default;
};

/// Cues and index as they follow the last Cluster, which ends at `offset`.
[[nodiscard]] Bytes buildTrailer(const HeaderRecord& header, const std::vector<IndexEntry>& entries, uint64_t offset);
/// Bytes of the trailer's fixed end, which says where the index begins.
inline constexpr std::size_t kFooterSize = 24;
struct Footer {
    uint64_t index_offset = 0;
    uint64_t index_size = 0;
};
[[nodiscard]] std::optional<Footer> readFooter(ByteView footer);
/// Bytes of an index before and behind its entries, and of one entry.
inline constexpr std::size_t kIndexStartSize = 24;
inline constexpr std::size_t kIndexEndSize = 4;
inline constexpr std::size_t kIndexEntrySize = 32;
/// Whether `start`, the first kIndexStartSize bytes of an index payload of `size`, can be those of this recording.
[[nodiscard]] bool indexBegins(ByteView start, uint64_t size, uint64_t recordingId);
/// Whether each entry in `entries` lies behind the one before, the first behind `end`, the last before `limit`, and is
/// not shorter than a frame. Moves `end` behind the last.
[[nodiscard]] bool entriesAscend(ByteView entries, uint64_t& end, uint64_t limit);
/// The entries of an index payload; nothing unless checksum and recording are right.
[[nodiscard]] std::optional<std::vector<IndexEntry>> readIndex(ByteView payload, uint64_t recordingId);

}  // namespace oru::rlx
