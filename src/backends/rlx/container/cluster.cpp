#include <cstring>
#include <initializer_list>

#include "backends/rlx/container/container.hpp"
#include "backends/rlx/container/ebml.hpp"

namespace oru::rlx {

namespace {

constexpr uint8_t kTrackNumber = 1;

// Where the elements of a Cluster begin; between their fixed bytes lie three sizes and the time.
constexpr std::size_t kClusterAt = 0;
constexpr std::size_t kTimeAt = kClusterAt + 4 + kSizeBytes;
constexpr std::size_t kGroupAt = kTimeAt + 1 + kSizeBytes + 8;
constexpr std::size_t kBlockAt = kGroupAt + 1 + kSizeBytes;
constexpr std::size_t kTrackAt = kBlockAt + 1 + kSizeBytes;

bool holdsAt(ByteView view, std::size_t offset, std::initializer_list<uint8_t> bytes) {
    return std::memcmp(view.data() + offset, bytes.begin(), bytes.size()) == 0;
}

bool hasFixedBytes(ByteView prefix) {
    return holdsAt(prefix, kClusterAt, {0x1F, 0x43, 0xB6, 0x75, 1}) &&
           holdsAt(prefix, kTimeAt, {0xE7, 1, 0, 0, 0, 0, 0, 0, 8}) && holdsAt(prefix, kGroupAt, {0xA0, 1}) &&
           holdsAt(prefix, kBlockAt, {0xA1, 1}) && holdsAt(prefix, kTrackAt, {0x80 | kTrackNumber, 0, 0, 0});
}

/// The size of the element at `offset`, without the marker in its first byte.
uint64_t sizeAt(ByteView prefix, std::size_t offset) {
    const std::size_t idSize = offset == kClusterAt ? 4 : 1;
    return loadNumber<std::endian::big>(prefix.subspan(offset + idSize + 1, kSizeBytes - 1));
}

}  // namespace

std::size_t suffixFramingSize(bool key) {
    return (key ? 0 : 1 + kSizeBytes + 8) + (2 + kSizeBytes) + (1 + kSizeBytes) + (1 + kSizeBytes + 8) +
           (1 + kSizeBytes);
}

std::size_t clusterSize(const FrameRecord& frame, std::size_t recordSize) {
    return kPrefixSize + frame.image_size + suffixFramingSize(frame.key) + recordSize;
}

void buildPrefix(const FrameRecord& frame, std::size_t recordSize, Bytes& out) {
    const std::size_t total = clusterSize(frame, recordSize);
    const std::size_t clusterHeader = 4 + kSizeBytes;
    const std::size_t groupHeader = 1 + kSizeBytes;
    const std::size_t timeElement = 1 + kSizeBytes + 8;
    putId(out, ID_CLUSTER);
    putSize(out, total - clusterHeader);
    putUnsigned(out, ID_CLUSTER_TIMESTAMP, frame.time_ms);
    putId(out, ID_BLOCK_GROUP);
    putSize(out, total - clusterHeader - timeElement - groupHeader);
    putId(out, ID_BLOCK);
    putSize(out, 4 + uint64_t{frame.image_size});
    out.push_back(0x80 | kTrackNumber);
    putBigEndian(out, 0, 3);
}

void buildSuffixFraming(const FrameRecord& frame, std::size_t recordSize, Bytes& out) {
    if (!frame.key) {
        putSigned(out, ID_REFERENCE_BLOCK, -static_cast<int64_t>(frame.reference_delta));
    }
    const std::size_t additional = 1 + kSizeBytes + recordSize;
    const std::size_t more = 1 + kSizeBytes + (1 + kSizeBytes + 8) + additional;
    putId(out, ID_BLOCK_ADDITIONS);
    putSize(out, more);
    putId(out, ID_BLOCK_MORE);
    putSize(out, more - 1 - kSizeBytes);
    putUnsigned(out, ID_BLOCK_ADD_ID, 1);
    putId(out, ID_BLOCK_ADDITIONAL);
    putSize(out, recordSize);
}

std::optional<ClusterShape> readPrefix(ByteView prefix) {
    if (prefix.size() < kPrefixSize || !hasFixedBytes(prefix)) {
        return std::nullopt;
    }
    const uint64_t cluster = sizeAt(prefix, kClusterAt);
    const uint64_t group = sizeAt(prefix, kGroupAt);
    const uint64_t block = sizeAt(prefix, kBlockAt);
    if (cluster > UINT32_MAX || block < 4 || block > cluster || group + kBlockAt - kTimeAt != cluster) {
        return std::nullopt;
    }
    const ClusterShape shape{kTimeAt + cluster, block - 4};
    const uint64_t smallest = kPrefixSize + shape.image_size + suffixFramingSize(true);
    return shape.total >= smallest + kMinRecordSize && shape.total - smallest <= kMaxRecordSize ? std::optional(shape)
                                                                                                : std::nullopt;
}

bool suffixBegins(ByteView prefix, ByteView start, uint64_t size, uint64_t recordingId, FrameRecord& frame,
                  Bytes& scratch) {
    Element reference;
    if (!readElement(start, reference)) {
        return false;
    }
    const std::size_t framing = suffixFramingSize(reference.id != ID_REFERENCE_BLOCK);
    if (start.size() < framing + kFrameStartSize || size < framing ||
        !decodeFrameStart(start.subspan(framing, kFrameStartSize), size - framing, frame) ||
        frame.recording_id != recordingId) {
        return false;
    }
    scratch.clear();
    buildPrefix(frame, size - framing, scratch);
    buildSuffixFraming(frame, size - framing, scratch);
    return scratch.size() == kPrefixSize + framing && std::memcmp(scratch.data(), prefix.data(), kPrefixSize) == 0 &&
           std::memcmp(scratch.data() + kPrefixSize, start.data(), framing) == 0;
}

bool readSuffix(ByteView prefix, ByteView suffix, uint64_t recordingId, FrameRecord& frame, Bytes& scratch) {
    return suffixBegins(prefix, suffix, suffix.size(), recordingId, frame, scratch) &&
           decodeFrame(suffix.subspan(suffixFramingSize(frame.key)), frame);
}

}  // namespace oru::rlx
