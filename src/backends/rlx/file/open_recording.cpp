#include "backends/rlx/file/open_recording.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "backends/rlx/container/ebml.hpp"
#include "backends/rlx/records/crc32c.hpp"

namespace oru::rlx {

namespace {

/// The head holds the record twice and the calibration text three times at most.
constexpr std::size_t kMaxHeadSize = 4 * kMaxHeaderSize;
constexpr std::size_t kIndexPiece = std::size_t{32'768} * kIndexEntrySize;

/// Both copies of the record stand in the head; whichever is whole is taken, and `offset` is where it begins. They do
/// not overlap, so that sums over as many bytes as the head has suffice for any recording, however many others are
/// claimed.
std::optional<HeaderRecord> findHeader(ByteView head, std::size_t& offset) {
    constexpr std::string_view kMagic = "RLXH";
    std::size_t budget = head.size();
    for (std::size_t from = 0; from < head.size(); ++from) {
        const void* hit = ::memmem(head.data() + from, head.size() - from, kMagic.data(), kMagic.size());
        if (hit == nullptr) {
            break;
        }
        from = static_cast<std::size_t>(static_cast<const uint8_t*>(hit) - head.data());
        const std::size_t size = claimedHeaderSize(head.subspan(from));
        const std::size_t cost = std::max(size, kMinHeaderSize);
        if (cost > budget) {
            break;
        }
        budget -= cost;
        if (size == 0) {
            continue;
        }
        if (auto header = decodeHeader(head.subspan(from))) {
            offset = from;
            return header;
        }
    }
    return std::nullopt;
}

/// Everything that finishing does not change: behind the SeekHead's space, except the Duration.
bool headIsWhole(ByteView head, const HeaderRecord& header) {
    const Bytes unfinished = buildHead(header, std::nullopt);
    if (head.size() < unfinished.size()) {
        return false;
    }
    // Two ends that share no byte of what finishing writes.
    constexpr uint64_t kOnes = ~uint64_t{0};
    constexpr uint64_t kFives = 0x15'5555'5555'5555;
    const Bytes finished = buildHead(header, Finished{kOnes, kOnes, kOnes});
    const Bytes other = buildHead(header, Finished{kFives, kFives, kFives});
    for (std::size_t i = 0; i < unfinished.size(); ++i) {
        if (head[i] != unfinished[i] && unfinished[i] == finished[i] && finished[i] == other[i]) {
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

OpenedFile openAndLock(const std::string& path, bool toChange) {
    OpenedFile recording;
    File& file = recording.file;
    if (!(toChange ? file.openToChange(path) : file.openToRead(path))) {
        recording.condition = openErrno(errno);
        return recording;
    }
    recording.locked = file.isRegular() && (toChange ? file.lockAlone() : file.lockShared());
    recording.writable = toChange;
    recording.condition = !file.isRegular()  ? Condition::NOT_A_FILE
                          : file.size() == 0 ? Condition::EMPTY
                                             : Condition::INTACT;
    return recording;
}

bool isSupported(const rlxrw::RlxRecordingHeader& facts) {
    return facts.version >= 1 && facts.version <= 2 && facts.width > 0 && facts.height > 0 &&
           facts.width <= kMaxImageSide && facts.height <= kMaxImageSide;
}

/// Whether the head says that the recording was finished with this size.
Condition checkSegmentSize(const File& file, uint64_t size) {
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
    const int order = std::memcmp(claimed.data(), sizeField, kSizeBytes);
    return order < 0 ? Condition::CUT_OFF : order > 0 ? Condition::DAMAGED : Condition::INTACT;
}

/// Reads an index of `size` bytes at `offset`. Nothing is believed before it was read: a piece that cannot be part of
/// an index ends it, so that the memory follows the bytes that the file really holds.
Condition readPayload(const OpenedFile& recording, const Footer& footer, Bytes& payload) {
    const uint64_t limit = footer.index_offset;
    uint64_t end = recording.head_size;
    payload.resize(std::min<uint64_t>(footer.index_size, kIndexStartSize));
    if (!recording.file.readAt(footer.index_offset, payload.data(), payload.size())) {
        return Condition::UNREADABLE;
    }
    if (!indexBegins(payload, footer.index_size, recording.header.recording_id)) {
        return Condition::DAMAGED;
    }
    while (payload.size() < footer.index_size) {
        const std::size_t from = payload.size();
        const uint64_t left = footer.index_size - from;
        const bool last = left <= kIndexPiece + kIndexEndSize;
        payload.resize(from + (last ? left : kIndexPiece));
        const ByteView piece = ByteView(payload).subspan(from);
        if (!recording.file.readAt(footer.index_offset + from, payload.data() + from, piece.size())) {
            return Condition::UNREADABLE;
        }
        if (!entriesAscend(piece.first(piece.size() - (last ? kIndexEndSize : 0)), end, limit)) {
            return Condition::DAMAGED;
        }
    }
    return Condition::INTACT;
}

Condition readIndexOf(const OpenedFile& recording, uint64_t size, std::optional<std::vector<IndexEntry>>& index) {
    uint8_t footerBytes[kFooterSize] = {};
    if (size < recording.head_size + kFooterSize ||
        !recording.file.readAt(size - kFooterSize, footerBytes, kFooterSize)) {
        return Condition::DAMAGED;
    }
    const std::optional<Footer> footer = readFooter(footerBytes);
    if (!footer || footer->index_offset < recording.head_size || footer->index_offset >= size ||
        footer->index_size != size - kFooterSize - footer->index_offset) {
        return Condition::DAMAGED;
    }
    Bytes payload;
    const Condition condition = readPayload(recording, *footer, payload);
    if (condition == Condition::INTACT) {
        index = readIndex(payload, recording.header.recording_id);
    }
    return condition == Condition::INTACT && !index ? Condition::DAMAGED : condition;
}
void readHead(OpenedFile& recording);

}  // namespace

OpenedFile openRecording(const std::string& path, bool toChange) {
    OpenedFile recording = openAndLock(path, toChange);
    if (recording.file.isOpen() && recording.condition != Condition::NOT_A_FILE && !recording.locked) {
        recording.condition = Condition::BEING_RECORDED;
    }
    readHead(recording);
    return recording;
}

OpenedFile openToRead(const std::string& path) {
    OpenedFile recording = openAndLock(path, false);
    readHead(recording);
    return recording;
}

namespace {

void readHead(OpenedFile& recording) {
    if (recording.condition != Condition::INTACT) {
        recording.file.close();
        return;
    }
    Bytes head(std::min<uint64_t>(recording.file.size(), kMaxHeadSize));
    head.resize(recording.file.readUpTo(0, head.data(), head.size()));
    std::size_t headerOffset = 0;
    const std::optional<HeaderRecord> header = findHeader(head, headerOffset);
    if (!header) {
        recording.condition = head.empty() ? Condition::UNREADABLE : Condition::NOT_OURS;
    } else if (!isSupported(header->facts)) {
        recording.condition = Condition::TOO_NEW;
    } else {
        recording.header = *header;
        recording.head_size = buildHead(*header, std::nullopt).size();
        recording.head_whole = headIsWhole(head, *header);
        recording.frames_from = recording.head_whole ? recording.head_size : headerOffset;
    }
}

}  // namespace

Condition loadIndex(const OpenedFile& recording, std::vector<IndexEntry>& entries) {
    const uint64_t size = recording.file.size();
    if (const Condition condition = checkSegmentSize(recording.file, size); condition != Condition::INTACT) {
        return condition;
    }
    std::optional<std::vector<IndexEntry>> index;
    if (const Condition condition = readIndexOf(recording, size, index); condition != Condition::INTACT) {
        return condition;
    }
    if (index->empty()) {
        return Condition::NO_WHOLE_FRAME;
    }
    const uint64_t end = index->back().offset + index->back().cluster_size;
    const Bytes trailer = buildTrailer(recording.header, *index, end);
    const Bytes head = buildHead(recording.header, finishedFacts(recording.header, index->back().time_ms, end, size));
    Bytes storedHead(head.size());
    Bytes storedTrailer(std::min<uint64_t>(trailer.size(), size - end));
    const bool same = recording.file.readAt(0, storedHead.data(), storedHead.size()) &&
                      recording.file.readAt(end, storedTrailer.data(), storedTrailer.size()) && head == storedHead &&
                      trailer == storedTrailer && end + trailer.size() == size;
    entries = std::move(*index);
    return same ? Condition::INTACT : Condition::DAMAGED;
}

void readStoredFrame(const OpenedFile& recording, const IndexEntry& entry, StoredFrame& out) {
    out.check = FrameCheck::DAMAGED;
    out.record_whole = false;
    // Prefix and record tell whether the image's size can be believed.
    std::array<uint8_t, kPrefixSize> prefix{};
    if (!recording.file.readAt(entry.offset, prefix.data(), prefix.size())) {
        return;
    }
    const std::optional<ClusterShape> shape = readPrefix(prefix);
    if (!shape || shape->total != entry.cluster_size || shape->image_size > maxStoredImage(recording.header.facts)) {
        return;
    }
    const uint64_t imageOffset = entry.offset + kPrefixSize;
    out.suffix.resize(shape->total - kPrefixSize - shape->image_size);
    out.record_whole = recording.file.readAt(imageOffset + shape->image_size, out.suffix.data(), out.suffix.size()) &&
                       readSuffix(prefix, out.suffix, recording.header.recording_id, out.frame, out.scratch);
    if (!out.record_whole) {
        return;
    }
    out.image.resize(shape->image_size);
    if (recording.file.readAt(imageOffset, out.image.data(), out.image.size()) &&
        crc32c(out.image.data(), out.image.size()) == out.frame.image_crc) {
        out.check = FrameCheck::WHOLE;
    }
}

}  // namespace oru::rlx
