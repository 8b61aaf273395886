#include "backends/rlx/container.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "backends/rlx/crc32c.hpp"
#include "backends/rlx/ebml.hpp"

namespace oru::rlx {

namespace {

constexpr const char* kApplication = "Koru One RLX 1";
constexpr std::size_t kSeekHeadSpace = 256;
constexpr uint64_t kNanosecondsPerMillisecond = 1'000'000;
constexpr uint64_t kCueSpacingMs = 500;
constexpr uint8_t kTrackNumber = 1;

struct TrackCodec {
    const char* id;
    const char* name;
};

TrackCodec trackCodec(RLX_COMPRESSION_MODE mode) {
    switch (mode) {
        case RLX_RAW:
            return {"V_UNCOMPRESSED", "raw"};
        case RLX_H264:
            return {"V_MPEG4/ISO/AVC", "h264"};
        case RLX_H265:
            return {"V_MPEGH/ISO/HEVC", "h265"};
        case RLX_FFV1:
            return {"V_FFV1", "ffv1"};
        default:
            return {"V_MS/VFW/FOURCC", "lossless"};
    }
}

Bytes ebmlHeader() {
    Bytes body;
    putUnsigned(body, ID_EBML_VERSION, 1);
    putUnsigned(body, ID_EBML_READ_VERSION, 1);
    putUnsigned(body, ID_EBML_MAX_ID_LENGTH, 4);
    putUnsigned(body, ID_EBML_MAX_SIZE_LENGTH, 8);
    putText(body, ID_DOC_TYPE, "matroska");
    putUnsigned(body, ID_DOC_TYPE_VERSION, 4);
    putUnsigned(body, ID_DOC_TYPE_READ_VERSION, 2);
    Bytes out;
    putMaster(out, ID_EBML, body);
    return out;
}

Bytes infoElement(const std::optional<Finished>& finished) {
    Bytes body;
    putUnsigned(body, ID_TIMESTAMP_SCALE, kNanosecondsPerMillisecond);
    putText(body, ID_MUXING_APP, kApplication);
    putText(body, ID_WRITING_APP, kApplication);
    if (finished) {
        putFloat(body, ID_DURATION, static_cast<double>(finished->duration_ms));
    } else {
        putVoid(body, 2 + kSizeBytes + 8);
    }
    Bytes out;
    putMaster(out, ID_INFO, body);
    return out;
}

Bytes tracksElement(const HeaderRecord& header) {
    const rlxrw::RlxRecordingHeader& facts = header.facts;
    Bytes video;
    putUnsigned(video, ID_FLAG_INTERLACED, 2);
    putUnsigned(video, ID_PIXEL_WIDTH, facts.width);
    putUnsigned(video, ID_PIXEL_HEIGHT, facts.height);
    if (facts.compression_mode == RLX_RAW) {
        putText(video, ID_COLOUR_SPACE, "YUY2");
    }
    Bytes entry;
    putUnsigned(entry, ID_TRACK_NUMBER, kTrackNumber);
    putUnsigned(entry, ID_TRACK_UID, header.recording_id | 1U);
    putUnsigned(entry, ID_TRACK_TYPE, 1);
    putUnsigned(entry, ID_FLAG_LACING, 0);
    if (facts.fps > 0.0F && std::isfinite(facts.fps)) {
        putUnsigned(entry, ID_DEFAULT_DURATION,
                    static_cast<uint64_t>(std::llround(1e9 / static_cast<double>(facts.fps))));
    }
    putUnsigned(entry, ID_MAX_BLOCK_ADDITION_ID, 1);
    putText(entry, ID_CODEC_ID, trackCodec(facts.compression_mode).id);
    if (!header.codec_private.empty()) {
        putBinary(entry, ID_CODEC_PRIVATE, header.codec_private);
    }
    putMaster(entry, ID_VIDEO, video);
    Bytes body;
    putMaster(body, ID_TRACK_ENTRY, entry);
    Bytes out;
    putMaster(out, ID_TRACKS, body);
    return out;
}

void putAttachment(Bytes& out, const char* description, const std::string& name, const char* type, ByteView data,
                   uint64_t uid) {
    Bytes file;
    putText(file, ID_FILE_DESCRIPTION, description);
    putText(file, ID_FILE_NAME, name);
    putText(file, ID_FILE_MIME_TYPE, type);
    putUnsigned(file, ID_FILE_UID, uid);
    putBinary(file, ID_FILE_DATA, data);
    putMaster(out, ID_ATTACHED_FILE, file);
}

Bytes attachmentsElement(const HeaderRecord& header, ByteView record) {
    Bytes body;
    putAttachment(body, "RLX header record", "rlx-header.bin", "application/octet-stream", record, 1);
    const std::string& text = header.facts.calibration_text;
    if (!text.empty()) {
        const std::string name = fmt::format("SN{}.conf", header.facts.serial_number);
        putAttachment(body, "Camera calibration", name, "text/plain",
                      {reinterpret_cast<const uint8_t*>(text.data()), text.size()}, 2);
    }
    Bytes out;
    putMaster(out, ID_ATTACHMENTS, body);
    return out;
}

void putTag(Bytes& out, const char* name, const std::string& value) {
    Bytes tag;
    putText(tag, ID_TAG_NAME, name);
    putText(tag, ID_TAG_STRING, value);
    putMaster(out, ID_SIMPLE_TAG, tag);
}

void putBinaryTag(Bytes& out, const char* name, ByteView data) {
    Bytes tag;
    putText(tag, ID_TAG_NAME, name);
    putBinary(tag, ID_TAG_BINARY, data);
    putMaster(out, ID_SIMPLE_TAG, tag);
}

Bytes wrapTags(const Bytes& simple_tags) {
    Bytes tag;
    putMaster(tag, ID_TARGETS, {});
    tag.insert(tag.end(), simple_tags.begin(), simple_tags.end());
    Bytes body;
    putMaster(body, ID_TAG, tag);
    Bytes out;
    putMaster(out, ID_TAGS, body);
    return out;
}

Bytes tagsElement(const HeaderRecord& header, ByteView record) {
    const rlxrw::RlxRecordingHeader& facts = header.facts;
    Bytes tags;
    putTag(tags, "RLX_VERSION", fmt::format("{}", facts.version));
    putTag(tags, "RLX_SERIAL_NUMBER", fmt::format("{}", facts.serial_number));
    putTag(tags, "RLX_MODEL", fmt::format("{}", static_cast<int>(facts.model)));
    putTag(tags, "RLX_CAMERA_FIRMWARE", fmt::format("{}", facts.camera_fw));
    putTag(tags, "RLX_SENSORS_FIRMWARE", fmt::format("{}", facts.sensors_fw));
    putTag(tags, "RLX_FPS", fmt::format("{:.9g}", static_cast<double>(facts.fps)));
    putTag(tags, "RLX_COMPRESSION", trackCodec(facts.compression_mode).name);
    putBinaryTag(tags, "RLX_HEADER", record);
    return wrapTags(tags);
}

void putSeek(Bytes& out, uint32_t id, uint64_t position) {
    Bytes name;
    putId(name, id);
    Bytes seek;
    putBinary(seek, ID_SEEK_ID, name);
    putUnsigned(seek, ID_SEEK_POSITION, position);
    putMaster(out, ID_SEEK, seek);
}

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

std::size_t segmentSizeOffset() {
    static const std::size_t offset = ebmlHeader().size() + 4;
    return offset;
}

std::size_t segmentBodyOffset() {
    return segmentSizeOffset() + kSizeBytes;
}

Finished finishedFacts(const HeaderRecord& header, uint64_t last_time_ms, uint64_t clusters_end, uint64_t file_size) {
    const float fps = header.facts.fps;
    const uint64_t last_frame_ms = fps >= 1.0F && std::isfinite(fps) ? static_cast<uint64_t>(1000.0F / fps) : 0;
    return {file_size - segmentBodyOffset(), last_time_ms + last_frame_ms, clusters_end};
}

Bytes buildHead(const HeaderRecord& header, const std::optional<Finished>& finished) {
    Bytes record;
    encodeHeader(header, record);
    const Bytes parts[] = {infoElement(finished), tracksElement(header), attachmentsElement(header, record),
                           tagsElement(header, record)};
    constexpr uint32_t kIds[] = {ID_INFO, ID_TRACKS, ID_ATTACHMENTS, ID_TAGS};

    Bytes seeks;
    uint64_t position = kSeekHeadSpace;
    for (std::size_t i = 0; i < std::size(parts); ++i) {
        putSeek(seeks, kIds[i], position);
        position += parts[i].size();
    }
    if (finished) {
        putSeek(seeks, ID_CUES, finished->cues_offset - segmentBodyOffset());
    }
    Bytes out = ebmlHeader();
    putId(out, ID_SEGMENT);
    putSize(out, finished ? finished->segment_size : kUnknownSize);
    putMaster(out, ID_SEEK_HEAD, seeks);
    putVoid(out, segmentBodyOffset() + kSeekHeadSpace - out.size());
    for (const Bytes& part : parts) {
        out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

std::size_t suffixFramingSize(bool key) {
    return (key ? 0 : 1 + kSizeBytes + 8) + (2 + kSizeBytes) + (1 + kSizeBytes) + (1 + kSizeBytes + 8) +
           (1 + kSizeBytes);
}

std::size_t clusterSize(const FrameRecord& frame, std::size_t record_size) {
    return kPrefixSize + frame.picture_size + suffixFramingSize(frame.key) + record_size;
}

void buildPrefix(const FrameRecord& frame, std::size_t record_size, Bytes& out) {
    const std::size_t total = clusterSize(frame, record_size);
    const std::size_t cluster_header = 4 + kSizeBytes;
    const std::size_t group_header = 1 + kSizeBytes;
    const std::size_t time_element = 1 + kSizeBytes + 8;
    putId(out, ID_CLUSTER);
    putSize(out, total - cluster_header);
    putUnsigned(out, ID_CLUSTER_TIMESTAMP, frame.time_ms);
    putId(out, ID_BLOCK_GROUP);
    putSize(out, total - cluster_header - time_element - group_header);
    putId(out, ID_BLOCK);
    putSize(out, 4 + uint64_t{frame.picture_size});
    out.push_back(0x80 | kTrackNumber);
    putBigEndian(out, 0, 3);
}

void buildSuffixFraming(const FrameRecord& frame, std::size_t record_size, Bytes& out) {
    if (!frame.key) {
        putSigned(out, ID_REFERENCE_BLOCK, -static_cast<int64_t>(frame.reference_delta));
    }
    const std::size_t additional = 1 + kSizeBytes + record_size;
    const std::size_t more = 1 + kSizeBytes + (1 + kSizeBytes + 8) + additional;
    putId(out, ID_BLOCK_ADDITIONS);
    putSize(out, more);
    putId(out, ID_BLOCK_MORE);
    putSize(out, more - 1 - kSizeBytes);
    putUnsigned(out, ID_BLOCK_ADD_ID, 1);
    putId(out, ID_BLOCK_ADDITIONAL);
    putSize(out, record_size);
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
    const uint64_t smallest = kPrefixSize + shape.picture_size + suffixFramingSize(true);
    return shape.total > smallest && shape.total - smallest <= kMaxRecordSize ? std::optional(shape) : std::nullopt;
}

bool readSuffix(ByteView prefix, ByteView suffix, uint64_t recording_id, FrameRecord& frame, Bytes& scratch) {
    Element reference;
    if (!readElement(suffix, reference)) {
        return false;
    }
    const std::size_t framing = suffixFramingSize(reference.id != ID_REFERENCE_BLOCK);
    if (suffix.size() <= framing || !decodeFrame(suffix.subspan(framing), frame) ||
        frame.recording_id != recording_id) {
        return false;
    }
    const std::size_t record_size = suffix.size() - framing;
    scratch.clear();
    buildPrefix(frame, record_size, scratch);
    buildSuffixFraming(frame, record_size, scratch);
    return scratch.size() == kPrefixSize + framing && std::memcmp(scratch.data(), prefix.data(), kPrefixSize) == 0 &&
           std::memcmp(scratch.data() + kPrefixSize, suffix.data(), framing) == 0;
}

namespace {

constexpr uint32_t kIndexMagic = 0x49584C52;   // "RLXI"
constexpr uint32_t kFooterMagic = 0x45584C52;  // "RLXE"
constexpr std::size_t kIndexFixedSize = 24;
constexpr std::size_t kEntrySize = 32;

}  // namespace

Bytes buildTrailer(const HeaderRecord& header, const std::vector<IndexEntry>& entries, uint64_t offset) {
    Bytes out = cuesElement(entries);
    Bytes payload;
    payload.reserve(kIndexFixedSize + entries.size() * kEntrySize + 4 + kFooterSize);
    FieldWriter fields(payload);
    fields.u32(kIndexMagic);
    fields.u32(1);
    fields.u64(header.recording_id);
    fields.u64(entries.size());
    for (const IndexEntry& entry : entries) {
        fields.u64(entry.offset);
        fields.u64(entry.time_ns);
        fields.u64(entry.time_ms);
        fields.u32(entry.cluster_size);
        fields.u32(entry.key ? 1 : 0);
    }
    fields.u32(crc32c(payload.data(), payload.size()));
    const std::size_t index_size = payload.size();
    fields.zeros(kFooterSize);

    Bytes tags;
    putBinaryTag(tags, "RLX_INDEX", payload);
    const Bytes element = wrapTags(tags);
    out.insert(out.end(), element.begin(), element.end());
    const uint64_t index_offset = offset + out.size() - payload.size();
    out.resize(out.size() - kFooterSize);
    FieldWriter footer(out);
    footer.u64(index_offset);
    footer.u64(index_size);
    footer.u32(kFooterMagic);
    footer.u32(crc32c(out.data() + out.size() - 20, 20));
    return out;
}

std::optional<Footer> readFooter(ByteView footer) {
    FieldReader in(footer);
    Footer result;
    result.index_offset = in.u64();
    result.index_size = in.u64();
    const uint32_t magic = in.u32();
    const uint32_t crc = in.u32();
    const bool right = in.ok() && magic == kFooterMagic && crc == crc32c(footer.data(), 20);
    return right ? std::optional(result) : std::nullopt;
}

std::optional<std::vector<IndexEntry>> readIndex(ByteView payload, uint64_t recording_id) {
    FieldReader in(payload);
    const uint32_t magic = in.u32();
    const uint32_t version = in.u32();
    const uint64_t id = in.u64();
    const uint64_t count = in.u64();
    if (!in.ok() || magic != kIndexMagic || version != 1 || id != recording_id ||
        payload.size() < kIndexFixedSize + 4 || (payload.size() - kIndexFixedSize - 4) / kEntrySize != count ||
        (payload.size() - kIndexFixedSize - 4) % kEntrySize != 0) {
        return std::nullopt;
    }
    FieldReader tail(payload.last(4));
    if (tail.u32() != crc32c(payload.data(), payload.size() - 4)) {
        return std::nullopt;
    }
    std::vector<IndexEntry> entries(count);
    for (IndexEntry& entry : entries) {
        entry.offset = in.u64();
        entry.time_ns = in.u64();
        entry.time_ms = in.u64();
        entry.cluster_size = in.u32();
        entry.key = (in.u32() & 1U) != 0;
    }
    return entries;
}

}  // namespace oru::rlx
