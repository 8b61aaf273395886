#include "backends/rlx/container/container.hpp"
#include "backends/rlx/container/ebml.hpp"
#include "backends/rlx/container/tags.hpp"
#include "backends/rlx/records/crc32c.hpp"

namespace oru::rlx {

namespace {

constexpr uint8_t kTrackNumber = 1;
constexpr uint64_t kCueSpacingMs = 500;
constexpr uint32_t kIndexMagic = 0x49584C52;   // "RLXI"
constexpr uint32_t kFooterMagic = 0x45584C52;  // "RLXE"

Bytes cuesElement(const std::vector<IndexEntry>& entries) {
    Bytes body;
    uint64_t next = 0;
    for (const IndexEntry& entry : entries) {
        if (!entry.key || entry.time_ms < next) {
            continue;
        }
        next = entry.time_ms + kCueSpacingMs;
        Bytes position;
        putUnsigned(position, ID_CUE_TRACK, kTrackNumber);
        putUnsigned(position, ID_CUE_CLUSTER_POSITION, entry.offset - segmentBodyOffset());
        Bytes point;
        putUnsigned(point, ID_CUE_TIME, entry.time_ms);
        putMaster(point, ID_CUE_TRACK_POSITIONS, position);
        putMaster(body, ID_CUE_POINT, point);
    }
    Bytes out;
    putMaster(out, ID_CUES, body);
    return out;
}

}  // namespace

Bytes buildTrailer(const HeaderRecord& header, const std::vector<IndexEntry>& entries, uint64_t offset) {
    Bytes out = cuesElement(entries);
    Bytes payload;
    payload.reserve(kIndexStartSize + entries.size() * kIndexEntrySize + kIndexEndSize + kFooterSize);
    LittleEndianWriter fields(payload);
    fields.put(kIndexMagic);
    fields.put<uint32_t>(1);
    fields.put(header.recording_id);
    fields.put<uint64_t>(entries.size());
    for (const IndexEntry& entry : entries) {
        fields.put(entry.offset);
        fields.put(entry.time_ns);
        fields.put(entry.time_ms);
        fields.put(entry.cluster_size);
        fields.put<uint32_t>(entry.key ? 1 : 0);
    }
    fields.put(crc32c(payload.data(), payload.size()));
    const std::size_t indexSize = payload.size();
    fields.zeros(kFooterSize);

    Bytes tags;
    putBinaryTag(tags, "RLX_INDEX", payload);
    const Bytes element = wrapTags(tags);
    out.insert(out.end(), element.begin(), element.end());
    const uint64_t indexOffset = offset + out.size() - payload.size();
    out.resize(out.size() - kFooterSize);
    LittleEndianWriter footer(out);
    footer.put(indexOffset);
    footer.put<uint64_t>(indexSize);
    footer.put(kFooterMagic);
    footer.put(crc32c(out.data() + out.size() - 20, 20));
    return out;
}

std::optional<Footer> readFooter(ByteView footer) {
    LittleEndianReader in(footer);
    Footer result;
    in.get(result.index_offset);
    in.get(result.index_size);
    const uint32_t magic = in.get<uint32_t>();
    const uint32_t crc = in.get<uint32_t>();
    const bool right = in.ok() && magic == kFooterMagic && crc == crc32c(footer.data(), 20);
    return right ? std::optional(result) : std::nullopt;
}

bool indexBegins(ByteView start, uint64_t size, uint64_t recordingId) {
    LittleEndianReader in(start);
    const uint32_t magic = in.get<uint32_t>();
    const uint32_t version = in.get<uint32_t>();
    const uint64_t id = in.get<uint64_t>();
    const uint64_t count = in.get<uint64_t>();
    constexpr std::size_t kFixed = kIndexStartSize + kIndexEndSize;
    return in.ok() && magic == kIndexMagic && version == 1 && id == recordingId && size >= kFixed &&
           (size - kFixed) / kIndexEntrySize == count && (size - kFixed) % kIndexEntrySize == 0;
}

bool entriesAscend(ByteView entries, uint64_t& end, uint64_t limit) {
    for (; !entries.empty(); entries = entries.subspan(kIndexEntrySize)) {
        LittleEndianReader in(entries.first(kIndexEntrySize));
        const uint64_t offset = in.get<uint64_t>();
        (void)in.bytes(16);
        const uint32_t size = in.get<uint32_t>();
        if (offset < end || offset > limit || size < kMinClusterSize || size > limit - offset) {
            return false;
        }
        end = offset + size;
    }
    return true;
}

std::optional<std::vector<IndexEntry>> readIndex(ByteView payload, uint64_t recordingId) {
    if (!indexBegins(payload, payload.size(), recordingId)) {
        return std::nullopt;
    }
    LittleEndianReader tail(payload.last(4));
    if (tail.get<uint32_t>() != crc32c(payload.data(), payload.size() - 4)) {
        return std::nullopt;
    }
    LittleEndianReader in(payload.subspan(kIndexStartSize));
    std::vector<IndexEntry> entries((payload.size() - kIndexStartSize - kIndexEndSize) / kIndexEntrySize);
    for (IndexEntry& entry : entries) {
        in.get(entry.offset);
        in.get(entry.time_ns);
        in.get(entry.time_ms);
        in.get(entry.cluster_size);
        entry.key = (in.get<uint32_t>() & 1U) != 0;
    }
    return entries;
}

}  // namespace oru::rlx
