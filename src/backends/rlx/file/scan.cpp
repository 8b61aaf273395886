#include "backends/rlx/file/scan.hpp"

#include <algorithm>
#include <array>

#include "backends/rlx/container/ebml.hpp"

namespace oru::rlx {

namespace {

constexpr uint64_t kTailMs = 2000;
constexpr std::size_t kSearchBlock = std::size_t{1} << 20;
constexpr std::array<uint8_t, 4> kClusterId{0x1F, 0x43, 0xB6, 0x75};

/// Looks for the next whole frame at or behind `from`; `file_size` when there is none.
uint64_t findFrame(const OpenedFile& recording, uint64_t from, uint64_t fileSize, StoredFrame& scratch) {
    Bytes block;
    IndexEntry entry;
    while (from + kPrefixSize <= fileSize) {
        block.resize(std::min<uint64_t>(kSearchBlock, fileSize - from));
        block.resize(recording.file.readUpTo(from, block.data(), block.size()));
        if (block.size() < kClusterId.size()) {
            break;
        }
        auto hit = block.begin();
        while ((hit = std::search(hit, block.end(), kClusterId.begin(), kClusterId.end())) != block.end()) {
            const uint64_t offset = from + static_cast<uint64_t>(hit - block.begin());
            if (readRecordAt(recording, offset, fileSize, scratch, entry)) {
                return offset;
            }
            ++hit;
        }
        from += block.size() - (kClusterId.size() - 1);
    }
    return fileSize;
}

/// Bytes of a Void element at `offset`, 0 when there is none.
uint64_t voidAt(const OpenedFile& recording, uint64_t offset, uint64_t fileSize) {
    std::array<uint8_t, 12> bytes{};
    Element element;
    const std::size_t count = recording.file.readUpTo(offset, bytes.data(), bytes.size());
    if (!readElement(ByteView(bytes).first(count), element) || element.id != ID_VOID ||
        element.size > fileSize - offset) {
        return 0;
    }
    return element.header_size + element.size;
}

void leaveOutBadImages(const OpenedFile& recording, ImageCheck check, Scan& scan, StoredFrame& scratch,
                       const RecordingProgress& progress) {
    const uint64_t last = scan.entries.empty() ? 0 : scan.entries.back().time_ms;
    const uint64_t from = check == ImageCheck::ALL || last < kTailMs ? 0 : last - kTailMs;
    const auto isBad = [&](const IndexEntry& entry) {
        if (entry.time_ms < from || scan.stopped) {
            return false;
        }
        scan.stopped = progress && !progress(entry.offset, recording.file.size());
        readStoredFrame(recording, entry, scratch);
        if (scratch.check == FrameCheck::WHOLE) {
            return false;
        }
        scan.holes.push_back({entry.offset, entry.cluster_size});
        ++scan.bad_images;
        return true;
    };
    std::erase_if(scan.entries, isBad);
}

}  // namespace

bool readRecordAt(const OpenedFile& recording, uint64_t offset, uint64_t fileSize, StoredFrame& scratch,
                  IndexEntry& entry) {
    std::array<uint8_t, kPrefixSize> prefix{};
    if (!recording.file.readAt(offset, prefix.data(), prefix.size())) {
        return false;
    }
    const std::optional<ClusterShape> shape = readPrefix(prefix);
    if (!shape || shape->total > fileSize - offset) {
        return false;
    }
    Bytes& suffix = scratch.cluster;
    const uint64_t suffixOffset = kPrefixSize + shape->image_size;
    suffix.resize(shape->total - suffixOffset);
    if (!recording.file.readAt(offset + suffixOffset, suffix.data(), suffix.size()) ||
        !readSuffix(prefix, suffix, recording.header.recording_id, scratch.frame, scratch.scratch)) {
        return false;
    }
    entry = {offset, scratch.frame.time_ns, static_cast<uint32_t>(shape->total), scratch.frame.key,
             scratch.frame.time_ms};
    return true;
}

Scan scanFrames(const OpenedFile& recording, ImageCheck check, const RecordingProgress& progress) {
    Scan scan;
    StoredFrame scratch;
    const uint64_t fileSize = recording.file.size();
    uint64_t offset = recording.frames_from;
    uint64_t expectedNumber = 0;
    IndexEntry entry;
    while (offset + kPrefixSize <= fileSize) {
        if (readRecordAt(recording, offset, fileSize, scratch, entry)) {
            const uint64_t number = scratch.frame.number;
            scan.missing_frames += number > expectedNumber ? number - expectedNumber : 0;
            expectedNumber = number + 1;
            scan.entries.push_back(entry);
            offset += entry.cluster_size;
            continue;
        }
        const uint64_t behindVoid = offset + voidAt(recording, offset, fileSize);
        if (behindVoid > offset && readRecordAt(recording, behindVoid, fileSize, scratch, entry)) {
            offset = behindVoid;
            continue;
        }
        const uint64_t next = findFrame(recording, offset + 1, fileSize, scratch);
        if (next == fileSize) {
            break;
        }
        const uint64_t hole = std::max(offset, recording.head_size);
        if (hole < next) {
            scan.holes.push_back({hole, next - hole});
        }
        offset = next;
    }
    scan.head_fits = scan.entries.empty() || scan.entries.front().offset >= recording.head_size;
    leaveOutBadImages(recording, check, scan, scratch, progress);
    scan.clusters_end =
        scan.entries.empty() ? recording.head_size : scan.entries.back().offset + scan.entries.back().cluster_size;
    std::erase_if(scan.holes, [&](const Hole& hole) { return hole.offset >= scan.clusters_end; });
    return scan;
}

}  // namespace oru::rlx
