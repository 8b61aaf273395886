#pragma once

#include <cstdint>
#include <string_view>

#include "utils/bytes.hpp"

namespace oru::rlx {

/// Element identifiers of EBML (RFC 8794) and Matroska (RFC 9559) that a recording uses.
enum ElementId : uint32_t {
    ID_EBML = 0x1A45DFA3,
    ID_EBML_VERSION = 0x4286,
    ID_EBML_READ_VERSION = 0x42F7,
    ID_EBML_MAX_ID_LENGTH = 0x42F2,
    ID_EBML_MAX_SIZE_LENGTH = 0x42F3,
    ID_DOC_TYPE = 0x4282,
    ID_DOC_TYPE_VERSION = 0x4287,
    ID_DOC_TYPE_READ_VERSION = 0x4285,
    ID_VOID = 0xEC,
    ID_SEGMENT = 0x18538067,
    ID_SEEK_HEAD = 0x114D9B74,
    ID_SEEK = 0x4DBB,
    ID_SEEK_ID = 0x53AB,
    ID_SEEK_POSITION = 0x53AC,
    ID_INFO = 0x1549A966,
    ID_TIMESTAMP_SCALE = 0x2AD7B1,
    ID_DURATION = 0x4489,
    ID_MUXING_APP = 0x4D80,
    ID_WRITING_APP = 0x5741,
    ID_TRACKS = 0x1654AE6B,
    ID_TRACK_ENTRY = 0xAE,
    ID_TRACK_NUMBER = 0xD7,
    ID_TRACK_UID = 0x73C5,
    ID_TRACK_TYPE = 0x83,
    ID_FLAG_LACING = 0x9C,
    ID_DEFAULT_DURATION = 0x23E383,
    ID_MAX_BLOCK_ADDITION_ID = 0x55EE,
    ID_CODEC_ID = 0x86,
    ID_CODEC_PRIVATE = 0x63A2,
    ID_VIDEO = 0xE0,
    ID_FLAG_INTERLACED = 0x9A,
    ID_PIXEL_WIDTH = 0xB0,
    ID_PIXEL_HEIGHT = 0xBA,
    ID_COLOUR_SPACE = 0x2EB524,
    ID_COLOUR = 0x55B0,
    ID_MATRIX_COEFFICIENTS = 0x55B1,
    ID_CHROMA_SITING_HORZ = 0x55B7,
    ID_CHROMA_SITING_VERT = 0x55B8,
    ID_RANGE = 0x55B9,
    ID_TRANSFER_CHARACTERISTICS = 0x55BA,
    ID_PRIMARIES = 0x55BB,
    ID_ATTACHMENTS = 0x1941A469,
    ID_ATTACHED_FILE = 0x61A7,
    ID_FILE_DESCRIPTION = 0x467E,
    ID_FILE_NAME = 0x466E,
    ID_FILE_MIME_TYPE = 0x4660,
    ID_FILE_DATA = 0x465C,
    ID_FILE_UID = 0x46AE,
    ID_TAGS = 0x1254C367,
    ID_TAG = 0x7373,
    ID_TARGETS = 0x63C0,
    ID_SIMPLE_TAG = 0x67C8,
    ID_TAG_NAME = 0x45A3,
    ID_TAG_STRING = 0x4487,
    ID_TAG_BINARY = 0x4485,
    ID_CLUSTER = 0x1F43B675,
    ID_CLUSTER_TIMESTAMP = 0xE7,
    ID_BLOCK_GROUP = 0xA0,
    ID_BLOCK = 0xA1,
    ID_REFERENCE_BLOCK = 0xFB,
    ID_BLOCK_ADDITIONS = 0x75A1,
    ID_BLOCK_MORE = 0xA6,
    ID_BLOCK_ADD_ID = 0xEE,
    ID_BLOCK_ADDITIONAL = 0xA5,
    ID_CUES = 0x1C53BB6B,
    ID_CUE_POINT = 0xBB,
    ID_CUE_TIME = 0xB3,
    ID_CUE_TRACK_POSITIONS = 0xB7,
    ID_CUE_TRACK = 0xF7,
    ID_CUE_CLUSTER_POSITION = 0xF1,
};

/// A size of eight bytes that says "unknown": the element has not been finished.
inline constexpr uint64_t kUnknownSize = 0x00FF'FFFF'FFFF'FFFF;

/// Every size is written in eight bytes, so that it can be patched in place.
inline constexpr std::size_t kSizeBytes = 8;

/// Bytes of an identifier, 1 to 4.
[[nodiscard]] std::size_t idBytes(uint32_t id);
void putId(Bytes& out, uint32_t id);
void putSize(Bytes& out, uint64_t size);
void putBigEndian(Bytes& out, uint64_t value, std::size_t count);

void putMaster(Bytes& out, uint32_t id, ByteView body);
void putBinary(Bytes& out, uint32_t id, ByteView data);
void putText(Bytes& out, uint32_t id, std::string_view text);
/// Eight bytes, so that equal layouts have equal lengths.
void putUnsigned(Bytes& out, uint32_t id, uint64_t value);
void putSigned(Bytes& out, uint32_t id, int64_t value);
void putFloat(Bytes& out, uint32_t id, double value);
/// A Void element of `total` bytes, header included; at least 9.
void putVoid(Bytes& out, std::size_t total);

/// Header of an element.
struct Element {
    uint32_t id = 0;
    uint64_t size = 0;            ///< of its body; kUnknownSize when unknown
    std::size_t header_size = 0;  ///< identifier and size
};

/// Reads an element header of any legal width; false when it is malformed or cut off.
[[nodiscard]] bool readElement(ByteView view, Element& element);

}  // namespace oru::rlx
