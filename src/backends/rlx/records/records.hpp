#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "collaborators/RLXVideo.hpp"
#include "utils/bytes.hpp"

namespace oru::rlx {

/// The facts of a recording, stored twice in the head of the file. docs/rlx-format.md lists the bytes.
struct HeaderRecord {
    rlxrw::RlxRecordingHeader facts;
    uint64_t recording_id = 0;  ///< in every frame record as well, so that a stale frame is never taken for one
    Bytes codec_private;        ///< what the track's CodecPrivate holds
    /// The head tells players the colours, and has tags where it had attachments before.
    bool tells_colours = false;
};

/// What belongs to one frame besides its image.
struct FrameRecord {
    uint64_t recording_id = 0;
    uint64_t number = 0;  ///< counts the frames written, from 0
    uint64_t time_ns = 0;
    uint64_t time_ms = 0;          ///< since the first frame, never decreasing: the container's own time
    uint64_t reference_delta = 0;  ///< milliseconds back to the frame it refers to
    bool key = true;
    uint32_t lost_before = 0;
    uint32_t image_size = 0;  ///< stored bytes
    uint32_t image_crc = 0;   ///< CRC-32C of the stored bytes
    rlxrw::rlxSampleMetadata metadata{};
    bool has_imu = false;
    IMUPacket imu;
    std::vector<IMUPacket> packets;
};

/// Bytes of one stored IMU packet.
inline constexpr std::size_t kPacketSize = 296;
/// Bounds that keep a damaged length from being believed. No camera delivers an image with a longer side.
inline constexpr uint32_t kMaxImageSide = 8192;
inline constexpr float kMaxRate = 1000.0F;  ///< frames per second
inline constexpr std::size_t kMaxHeaderSize = std::size_t{1} << 20;
inline constexpr std::size_t kMinHeaderSize = 308;
inline constexpr std::size_t kMaxPackets = 20'000;
inline constexpr std::size_t kMaxRecordSize = 1024 + (kMaxPackets + 1) * kPacketSize;
inline constexpr std::size_t kMinRecordSize = 344;
/// Bytes of the longest image that a recording of this size and mode may store: in raw mode every image has them, and
/// no coder needs more than four bytes for one of the camera's.
[[nodiscard]] uint64_t maxStoredImage(const rlxrw::RlxRecordingHeader& facts);
/// The rate when it can be one of a camera, else 0: unknown.
[[nodiscard]] float plausibleRate(float fps);

/// Bytes of the record; a reader takes at most kMaxHeaderSize.
[[nodiscard]] std::size_t headerRecordSize(const HeaderRecord& header);
void encodeHeader(const HeaderRecord& header, Bytes& out);
/// The record at the start of `view`, which may go on behind it; nothing unless its checksum is right.
[[nodiscard]] std::optional<HeaderRecord> decodeHeader(ByteView view);
/// Bytes of the header record that `view` seems to begin with, 0 when it cannot be one. Looks at no checksum.
[[nodiscard]] std::size_t claimedHeaderSize(ByteView view);

/// `version` 1 leaves out every IMU packet.
void encodeFrame(const FrameRecord& frame, int version, Bytes& out);
/// The fields in the first kFrameStartSize bytes of a record of `size` bytes; false when it cannot be one. Looks at no
/// checksum.
inline constexpr std::size_t kFrameStartSize = 72;
[[nodiscard]] bool decodeFrameStart(ByteView start, std::size_t size, FrameRecord& frame);
/// The record that fills `view` exactly; false unless its checksum is right. Reuses the capacity of `frame.packets`.
[[nodiscard]] bool decodeFrame(ByteView view, FrameRecord& frame);

}  // namespace oru::rlx
