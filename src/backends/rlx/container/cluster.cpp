#include <cstring>

#include "backends/rlx/container/container.hpp"
#include "backends/rlx/container/ebml.hpp"

namespace oru::rlx {

namespace {

constexpr uint8_t kTrackNumber = 1;

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
    constexpr std::size_t kGroup = 4 + kSizeBytes + 1 + kSizeBytes + 8;
    constexpr std::size_t kBlock = kGroup + 1 + kSizeBytes;
    Element cluster;
    Element block;
    if (prefix.size() < kPrefixSize || !readElement(prefix, cluster) || cluster.id != ID_CLUSTER ||
        !readElement(prefix.subspan(kBlock), block) || block.id != ID_BLOCK) {
        return std::nullopt;
    }
    if (cluster.size == kUnknownSize || cluster.size > UINT32_MAX || block.size < 4 || block.size > cluster.size) {
        return std::nullopt;
    }
    const ClusterShape shape{cluster.header_size + cluster.size, block.size - 4};
    const uint64_t smallest = kPrefixSize + shape.image_size + suffixFramingSize(true);
    return shape.total > smallest && shape.total - smallest <= kMaxRecordSize ? std::optional(shape) : std::nullopt;
}

bool readSuffix(ByteView prefix, ByteView suffix, uint64_t recordingId, FrameRecord& frame, Bytes& scratch) {
    Element reference;
    if (!readElement(suffix, reference)) {
        return false;
    }
    const std::size_t framing = suffixFramingSize(reference.id != ID_REFERENCE_BLOCK);
    if (suffix.size() <= framing || !decodeFrame(suffix.subspan(framing), frame) || frame.recording_id != recordingId) {
        return false;
    }
    const std::size_t recordSize = suffix.size() - framing;
    scratch.clear();
    buildPrefix(frame, recordSize, scratch);
    buildSuffixFraming(frame, recordSize, scratch);
    return scratch.size() == kPrefixSize + framing && std::memcmp(scratch.data(), prefix.data(), kPrefixSize) == 0 &&
           std::memcmp(scratch.data() + kPrefixSize, suffix.data(), framing) == 0;
}

}  // namespace oru::rlx
