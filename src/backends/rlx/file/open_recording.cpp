#include "backends/rlx/file/open_recording.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "backends/rlx/container/ebml.hpp"
#include "backends/rlx/records/crc32c.hpp"

namespace oru::rlx {

namespace {

/// The head holds the record twice and the calibration text three times at most.
constexpr uint32_t kMaxSide = 16'384;
constexpr std::size_t kMaxHeadSize = 4 * kMaxHeaderSize;

/// Both copies of the record stand in the head; whichever is whole is taken, and `offset` is where it begins.
std::optional<HeaderRecord> findHeader(ByteView head, std::size_t& offset) {
    constexpr uint8_t kMagic[] = {'R', 'L', 'X', 'H'};
    auto from = head.begin();
    while (true) {
        from = std::search(from, head.end(), std::begin(kMagic), std::end(kMagic));
        if (from == head.end()) {
            return std::nullopt;
        }
        offset = static_cast<std::size_t>(from - head.begin());
        if (auto header = decodeHeader(head.subspan(offset))) {
            return header;
        }
        ++from;
    }
}

/// Everything that finishing does not change: behind the SeekHead's space, except the Duration.
bool headIsWhole(ByteView head, const HeaderRecord& header) {
    const Bytes unfinished = buildHead(header, std::nullopt);
    if (head.size() < unfinished.size()) {
        return false;
    }
    const Bytes finished = buildHead(header, Finished{~uint64_t{0}, ~uint64_t{0}, ~uint64_t{0}});
    for (std::size_t i = 0; i < unfinished.size(); ++i) {
        if (head[i] != unfinished[i] && unfinished[i] == finished[i]) {
            return false;
        }
    }
    return true;
}

Condition openErrno(int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
            return Condition::MISSING;
        case EISDIR:
        case ENXIO:
            return Condition::NOT_A_FILE;
        default:
            return Condition::UNREADABLE;
    }
}

Condition openAndLock(const std::string& path, bool toChange, File& file) {
    if (!(toChange ? file.openToChange(path) : file.openToRead(path))) {
        return openErrno(errno);
    }
    if (!file.isRegular()) {
        return Condition::NOT_A_FILE;
    }
    if (!(toChange ? file.lockAlone() : file.lockShared())) {
        return Condition::BEING_RECORDED;
    }
    return file.size() == 0 ? Condition::EMPTY : Condition::INTACT;
}

}  // namespace

OpenedFile openRecording(const std::string& path, bool toChange) {
    OpenedFile recording;
    recording.condition = openAndLock(path, toChange, recording.file);
    if (recording.condition != Condition::INTACT) {
        recording.file.close();
        return recording;
    }
    Bytes head(std::min<uint64_t>(recording.file.size(), kMaxHeadSize));
    head.resize(recording.file.readUpTo(0, head.data(), head.size()));
    std::size_t headerOffset = 0;
    const std::optional<HeaderRecord> header = findHeader(head, headerOffset);
    if (!header) {
        recording.condition = head.empty() ? Condition::UNREADABLE : Condition::NOT_OURS;
    } else if (header->facts.version < 1 || header->facts.version > 2 || header->facts.width > kMaxSide ||
               header->facts.height > kMaxSide) {
        recording.condition = Condition::TOO_NEW;
    } else {
        recording.header = *header;
        recording.head_size = buildHead(*header, std::nullopt).size();
        recording.head_whole = headIsWhole(head, *header);
        recording.frames_from = recording.head_whole ? recording.head_size : headerOffset;
    }
    return recording;
}

Condition loadIndex(const OpenedFile& recording, std::vector<IndexEntry>& entries) {
    const File& file = recording.file;
    const uint64_t size = file.size();
    uint8_t sizeField[kSizeBytes] = {};
    if (!file.readAt(segmentSizeOffset(), sizeField, sizeof sizeField)) {
        return Condition::CUT_OFF;
    }
    Bytes unknown;
    putSize(unknown, kUnknownSize);
    if (std::memcmp(unknown.data(), sizeField, kSizeBytes) == 0) {
        return Condition::UNFINISHED;
    }
    Bytes claimed;
    putSize(claimed, size - segmentBodyOffset());
    if (std::memcmp(claimed.data(), sizeField, kSizeBytes) != 0) {
        return std::memcmp(claimed.data(), sizeField, kSizeBytes) < 0 ? Condition::CUT_OFF : Condition::DAMAGED;
    }
    uint8_t footerBytes[kFooterSize] = {};
    if (size < recording.head_size + kFooterSize || !file.readAt(size - kFooterSize, footerBytes, kFooterSize)) {
        return Condition::DAMAGED;
    }
    const std::optional<Footer> footer = readFooter(footerBytes);
    if (!footer || footer->index_offset < recording.head_size || footer->index_offset >= size ||
        footer->index_size != size - kFooterSize - footer->index_offset) {
        return Condition::DAMAGED;
    }
    Bytes payload(footer->index_size);
    if (!file.readAt(footer->index_offset, payload.data(), payload.size())) {
        return Condition::UNREADABLE;
    }
    std::optional<std::vector<IndexEntry>> index = readIndex(payload, recording.header.recording_id);
    if (!index) {
        return Condition::DAMAGED;
    }
    if (index->empty()) {
        return Condition::NO_WHOLE_FRAME;
    }
    uint64_t end = recording.head_size;
    for (const IndexEntry& entry : *index) {
        if (entry.offset < end || entry.offset > size || entry.cluster_size > size - entry.offset) {
            return Condition::DAMAGED;
        }
        end = entry.offset + entry.cluster_size;
    }
    const Bytes trailer = buildTrailer(recording.header, *index, end);
    const Bytes head = buildHead(recording.header, finishedFacts(recording.header, index->back().time_ms, end, size));
    Bytes storedHead(head.size());
    Bytes storedTrailer(std::min<uint64_t>(trailer.size(), size - end));
    const bool same = file.readAt(0, storedHead.data(), storedHead.size()) &&
                      file.readAt(end, storedTrailer.data(), storedTrailer.size()) && head == storedHead &&
                      trailer == storedTrailer && end + trailer.size() == size;
    entries = std::move(*index);
    return same ? Condition::INTACT : Condition::DAMAGED;
}

void readStoredFrame(const OpenedFile& recording, const IndexEntry& entry, StoredFrame& out) {
    out.check = FrameCheck::DAMAGED;
    out.record_whole = false;
    out.cluster.resize(entry.cluster_size);
    if (!recording.file.readAt(entry.offset, out.cluster.data(), out.cluster.size())) {
        return;
    }
    const ByteView cluster(out.cluster);
    const std::optional<ClusterShape> shape = readPrefix(cluster);
    if (!shape || shape->total != cluster.size()) {
        return;
    }
    const auto imageSize = static_cast<std::size_t>(shape->image_size);
    out.record_whole = readSuffix(cluster.first(kPrefixSize), cluster.subspan(kPrefixSize + imageSize),
                                  recording.header.recording_id, out.frame, out.scratch);
    out.image = cluster.subspan(kPrefixSize, imageSize);
    if (out.record_whole && crc32c(out.image.data(), out.image.size()) == out.frame.image_crc) {
        out.check = FrameCheck::WHOLE;
    }
}

}  // namespace oru::rlx
