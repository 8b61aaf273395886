#include "backends/rlx/container/container.hpp"

#include <fmt/format.h>

#include <cmath>

#include "backends/rlx/container/bitmap_header.hpp"
#include "backends/rlx/container/ebml.hpp"
#include "backends/rlx/container/tags.hpp"

namespace oru::rlx {

namespace {

constexpr const char* kApplication = "Koru One RLX 1";
constexpr std::size_t kSeekHeadSpace = 256;
constexpr uint64_t kNanosecondsPerMillisecond = 1'000'000;
constexpr uint8_t kTrackNumber = 1;
constexpr float kSlowestRate = 0.001F;

struct TrackCodec {
    const char* id;
    const char* name;
};

constexpr const char* kFourccCodec = "V_MS/VFW/FOURCC";

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
            return {kFourccCodec, "lossless"};
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

/// BT.601 in video range, chroma at the left pixel of a pair; primaries and transfer as displays have them.
void putColour(Bytes& video) {
    constexpr uint64_t kBt709 = 1;
    constexpr uint64_t kBt601 = 6;
    constexpr uint64_t kVideoRange = 1;
    constexpr uint64_t kLeft = 1;
    constexpr uint64_t kBetweenRows = 2;
    Bytes colour;
    putUnsigned(colour, ID_MATRIX_COEFFICIENTS, kBt601);
    putUnsigned(colour, ID_CHROMA_SITING_HORZ, kLeft);
    putUnsigned(colour, ID_CHROMA_SITING_VERT, kBetweenRows);
    putUnsigned(colour, ID_RANGE, kVideoRange);
    putUnsigned(colour, ID_TRANSFER_CHARACTERISTICS, kBt709);
    putUnsigned(colour, ID_PRIMARIES, kBt709);
    putMaster(video, ID_COLOUR, colour);
}

/// FFV1 by its FourCC: players of their own demultiplexer do not know its name.
void putCodec(Bytes& entry, const HeaderRecord& header) {
    const rlxrw::RlxRecordingHeader& facts = header.facts;
    const bool byFourcc = facts.compression_mode == RLX_FFV1 && header.tells_colours;
    putText(entry, ID_CODEC_ID, byFourcc ? kFourccCodec : trackCodec(facts.compression_mode).id);
    if (byFourcc) {
        putBinary(entry, ID_CODEC_PRIVATE, bitmapHeader(kFfv1, facts.width, facts.height, header.codec_private));
    } else if (!header.codec_private.empty()) {
        putBinary(entry, ID_CODEC_PRIVATE, header.codec_private);
    }
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
    if (header.tells_colours) {
        putColour(video);
    }
    Bytes entry;
    putUnsigned(entry, ID_TRACK_NUMBER, kTrackNumber);
    putUnsigned(entry, ID_TRACK_UID, header.recording_id | 1U);
    putUnsigned(entry, ID_TRACK_TYPE, 1);
    putUnsigned(entry, ID_FLAG_LACING, 0);
    if (facts.fps > kSlowestRate && std::isfinite(facts.fps)) {
        putUnsigned(entry, ID_DEFAULT_DURATION,
                    static_cast<uint64_t>(std::llround(1e9 / static_cast<double>(facts.fps))));
    }
    putUnsigned(entry, ID_MAX_BLOCK_ADDITION_ID, 1);
    putCodec(entry, header);
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

/// What attachments held before: a player complains about attachments that it cannot show.
Bytes copyElement(const HeaderRecord& header, ByteView record) {
    Bytes tags;
    if (!header.facts.calibration_text.empty()) {
        putTag(tags, "RLX_CALIBRATION", header.facts.calibration_text);
    }
    putBinaryTag(tags, "RLX_HEADER_COPY", record);
    return wrapTags(tags);
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

}  // namespace

std::size_t segmentSizeOffset() {
    static const std::size_t offset = ebmlHeader().size() + 4;
    return offset;
}

std::size_t cuesPositionOffset() {
    constexpr std::size_t kSeekSize = 42;
    constexpr std::size_t kSeeksBeforeCues = 4;
    return segmentBodyOffset() + 4 + kSizeBytes + (kSeeksBeforeCues + 1) * kSeekSize - 8;
}

std::size_t segmentBodyOffset() {
    return segmentSizeOffset() + kSizeBytes;
}

Finished finishedFacts(const HeaderRecord& header, uint64_t lastTimeMs, uint64_t clustersEnd, uint64_t fileSize) {
    const float fps = header.facts.fps;
    const uint64_t lastFrameMs = fps >= 1.0F && std::isfinite(fps) ? static_cast<uint64_t>(1000.0F / fps) : 0;
    return {fileSize - segmentBodyOffset(), lastTimeMs + lastFrameMs, clustersEnd};
}

Bytes buildHead(const HeaderRecord& header, const std::optional<Finished>& finished) {
    Bytes record;
    encodeHeader(header, record);
    const Bytes parts[] = {infoElement(finished), tracksElement(header),
                           header.tells_colours ? copyElement(header, record) : attachmentsElement(header, record),
                           tagsElement(header, record)};
    const uint32_t ids[] = {ID_INFO, ID_TRACKS, header.tells_colours ? ID_TAGS : ID_ATTACHMENTS, ID_TAGS};

    Bytes seeks;
    uint64_t position = kSeekHeadSpace;
    for (std::size_t i = 0; i < std::size(parts); ++i) {
        putSeek(seeks, ids[i], position);
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

}  // namespace oru::rlx
