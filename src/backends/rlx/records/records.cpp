#include "backends/rlx/records/records.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <type_traits>

#include "backends/rlx/records/crc32c.hpp"
#include "oru_input/mcu/imu_fields.hpp"

namespace oru::rlx {

namespace {

constexpr uint32_t kHeaderMagic = 0x48584C52;  // "RLXH"
constexpr uint32_t kFrameMagic = 0x46584C52;   // "RLXF"
constexpr std::size_t kHeaderFixedSize = 304;
constexpr std::size_t kFrameFixedSize = 340;
static_assert(kMinHeaderSize == kHeaderFixedSize + 4);
static_assert(kMinRecordSize == kFrameFixedSize + 4);
constexpr uint64_t kLongestTimeMs = INT64_MAX;

enum HeaderFlag : uint32_t {
    FLIPPED = 1,
    DECOMPRESSION_PLATFORM = 2,
    HAS_IMU = 4,
    HAS_TRANSFORM = 8,
    TELLS_COLOURS = 16
};
enum FrameFlag : uint32_t { KEY = 1, HAS_FRAME_IMU = 2 };

/// Calls `visit` with each field of a packet and `pad` with a number of zero bytes, in the order of the file: that of
/// the field list, but that the flags stand together behind the sample's state.
template <class Packet, class Visit, class Pad>
void visitStored(Packet& packet, const Visit& visit, const Pad& pad) {
    const auto visitFlag = [&](auto& field) {
        if constexpr (std::is_same_v<decltype(field), decltype((packet.valid))>) {
            visit(field);
        }
    };
    const auto visitOther = [&](auto& field) {
        if constexpr (!std::is_same_v<decltype(field), decltype((packet.valid))>) {
            visit(field);
        }
        if constexpr (std::is_same_v<decltype(field), decltype((packet.sample_state))>) {
            visitImuFields(visitFlag, packet);
            pad(3);
        }
    };
    visitImuFields(visitOther, packet);
    pad(4);
}

void putPacket(LittleEndianWriter& out, const IMUPacket& packet) {
    visitStored(
        packet, [&](const auto& field) { out.put(field); }, [&](std::size_t count) { out.zeros(count); });
}

void getPacket(LittleEndianReader& in, IMUPacket& packet) {
    visitStored(
        packet, [&](auto& field) { in.get(field); }, [&](std::size_t count) { (void)in.bytes(count); });
}

void putChecksum(Bytes& out, std::size_t start) {
    const uint32_t crc = crc32c(out.data() + start, out.size() - start);
    LittleEndianWriter(out).put(crc);
}

bool checksumHolds(ByteView record) {
    LittleEndianReader tail(record.last(4));
    return crc32c(record.data(), record.size() - 4) == tail.get<uint32_t>();
}

uint32_t headerFlags(const HeaderRecord& header) {
    const rlxrw::RlxRecordingHeader& facts = header.facts;
    const bool second = facts.version == 2;
    return (second && facts.flipped ? FLIPPED : 0U) |
           (second && facts.decompression_platform ? DECOMPRESSION_PLATFORM : 0U) | (facts.has_imu ? HAS_IMU : 0U) |
           (facts.has_imu_to_camera ? HAS_TRANSFORM : 0U) | (header.tells_colours ? TELLS_COLOURS : 0U);
}

void getHeaderFacts(LittleEndianReader& in, HeaderRecord& header) {
    rlxrw::RlxRecordingHeader& facts = header.facts;
    in.get(facts.serial_number);
    facts.model = static_cast<MODEL>(in.get<int32_t>());
    in.get(facts.camera_fw);
    in.get(facts.sensors_fw);
    in.get(facts.imu_data_version);
    in.get(facts.width);
    in.get(facts.height);
    in.get(facts.fps);
    facts.compression_mode = static_cast<RLX_COMPRESSION_MODE>(in.get<int32_t>());
    in.get(facts.bitrate);
    in.get(facts.sharpness);
    const uint32_t flags = in.get<uint32_t>();
    facts.flipped = (flags & FLIPPED) != 0;
    facts.decompression_platform = (flags & DECOMPRESSION_PLATFORM) != 0;
    facts.has_imu = (flags & HAS_IMU) != 0;
    facts.has_imu_to_camera = (flags & HAS_TRANSFORM) != 0;
    header.tells_colours = (flags & TELLS_COLOURS) != 0;
    in.get(facts.imu_calibration.values);
    for (std::size_t i = 0; i < 16; ++i) {
        in.get(facts.imu_to_camera(i / 4, i % 4));
    }
}

}  // namespace

uint64_t maxStoredImage(const rlxrw::RlxRecordingHeader& facts) {
    constexpr uint64_t kHeadOfACodedImage = 65'536;
    const uint64_t raw = uint64_t{facts.width} * facts.height * 2;
    return facts.compression_mode == RLX_RAW ? raw : 4 * raw + kHeadOfACodedImage;
}

float plausibleRate(float fps) {
    return std::isfinite(fps) && fps > 0.0F && fps <= kMaxRate ? fps : 0.0F;
}

std::size_t headerRecordSize(const HeaderRecord& header) {
    return kHeaderFixedSize + header.codec_private.size() + header.facts.calibration_text.size() + 4;
}

void encodeHeader(const HeaderRecord& header, Bytes& out) {
    const std::size_t start = out.size();
    const rlxrw::RlxRecordingHeader& facts = header.facts;
    LittleEndianWriter fields(out);
    fields.put(kHeaderMagic);
    fields.put(static_cast<uint32_t>(facts.version));
    fields.put(static_cast<uint32_t>(headerRecordSize(header)));
    fields.put(static_cast<uint32_t>(header.codec_private.size()));
    fields.put(static_cast<uint32_t>(facts.calibration_text.size()));
    fields.put(header.recording_id);
    fields.put(facts.serial_number);
    fields.put<int32_t>(facts.model);
    fields.put(facts.camera_fw);
    fields.put(facts.sensors_fw);
    fields.put(facts.imu_data_version);
    fields.put(facts.width);
    fields.put(facts.height);
    fields.put(facts.fps);
    fields.put<int32_t>(facts.compression_mode);
    fields.put(facts.bitrate);
    fields.put(facts.sharpness);
    fields.put(headerFlags(header));
    fields.put(facts.imu_calibration.values);
    for (std::size_t i = 0; i < 16; ++i) {
        fields.put(facts.imu_to_camera(i / 4, i % 4));
    }
    fields.zeros(start + kHeaderFixedSize - out.size());
    fields.bytes(header.codec_private);
    out.insert(out.end(), facts.calibration_text.begin(), facts.calibration_text.end());
    putChecksum(out, start);
}

std::size_t claimedHeaderSize(ByteView view) {
    LittleEndianReader in(view);
    const uint32_t magic = in.get<uint32_t>();
    (void)in.get<uint32_t>();
    const std::size_t size = in.get<uint32_t>();
    const std::size_t privateSize = in.get<uint32_t>();
    const std::size_t textSize = in.get<uint32_t>();
    const bool plausible = in.ok() && magic == kHeaderMagic && size <= view.size() && size <= kMaxHeaderSize &&
                           size == kHeaderFixedSize + privateSize + textSize + 4;
    return plausible ? size : 0;
}

std::optional<HeaderRecord> decodeHeader(ByteView view) {
    const std::size_t size = claimedHeaderSize(view);
    if (size == 0 || !checksumHolds(view.first(size))) {
        return std::nullopt;
    }
    LittleEndianReader in(view);
    HeaderRecord header;
    (void)in.get<uint32_t>();
    header.facts.version = static_cast<int>(in.get<uint32_t>());
    (void)in.get<uint32_t>();
    const std::size_t privateSize = in.get<uint32_t>();
    const std::size_t textSize = in.get<uint32_t>();
    in.get(header.recording_id);
    getHeaderFacts(in, header);
    LittleEndianReader tail(view.subspan(kHeaderFixedSize));
    const ByteView codecPrivate = tail.bytes(privateSize);
    header.codec_private.assign(codecPrivate.begin(), codecPrivate.end());
    const ByteView text = tail.bytes(textSize);
    header.facts.calibration_text.assign(text.begin(), text.end());
    return header;
}

void encodeFrame(const FrameRecord& frame, int version, Bytes& out) {
    const std::size_t start = out.size();
    const bool withImu = version == 2;
    const std::size_t packets = withImu ? std::min(frame.packets.size(), kMaxPackets) : 0;
    const bool ownPacket = withImu && frame.has_imu;
    LittleEndianWriter fields(out);
    fields.put(kFrameMagic);
    fields.put(static_cast<uint32_t>(version));
    fields.put(frame.recording_id);
    fields.put(frame.number);
    fields.put(frame.time_ns);
    fields.put(frame.time_ms);
    fields.put(frame.reference_delta);
    fields.put(frame.image_size);
    fields.put(frame.image_crc);
    fields.put<uint32_t>((frame.key ? KEY : 0U) | (ownPacket ? HAS_FRAME_IMU : 0U));
    fields.put(frame.lost_before);
    fields.put(static_cast<uint32_t>(packets));
    fields.put<uint32_t>(kPacketSize);
    fields.zeros(start + kFrameFixedSize - sizeof frame.metadata.bytes - out.size());
    fields.bytes(frame.metadata.bytes);
    if (ownPacket) {
        putPacket(fields, frame.imu);
    }
    for (std::size_t i = 0; i < packets; ++i) {
        putPacket(fields, frame.packets[i]);
    }
    putChecksum(out, start);
}

bool decodeFrameStart(ByteView start, std::size_t size, FrameRecord& frame) {
    LittleEndianReader in(start);
    const uint32_t magic = in.get<uint32_t>();
    (void)in.get<uint32_t>();
    in.get(frame.recording_id);
    in.get(frame.number);
    in.get(frame.time_ns);
    in.get(frame.time_ms);
    in.get(frame.reference_delta);
    in.get(frame.image_size);
    in.get(frame.image_crc);
    const uint32_t flags = in.get<uint32_t>();
    frame.key = (flags & KEY) != 0;
    frame.has_imu = (flags & HAS_FRAME_IMU) != 0;
    in.get(frame.lost_before);
    const std::size_t packets = in.get<uint32_t>();
    const uint32_t packetSize = in.get<uint32_t>();
    return in.ok() && magic == kFrameMagic && packetSize == kPacketSize && packets <= kMaxPackets &&
           size == kMinRecordSize + (packets + (frame.has_imu ? 1 : 0)) * kPacketSize &&
           frame.time_ms <= kLongestTimeMs && frame.reference_delta <= frame.time_ms;
}

bool decodeFrame(ByteView view, FrameRecord& frame) {
    if (view.size() < kMinRecordSize || !decodeFrameStart(view, view.size(), frame) || !checksumHolds(view)) {
        return false;
    }
    const std::size_t packets = (view.size() - kMinRecordSize) / kPacketSize - (frame.has_imu ? 1 : 0);
    LittleEndianReader body(view.subspan(kFrameFixedSize - sizeof frame.metadata.bytes));
    const ByteView metadata = body.bytes(sizeof frame.metadata.bytes);
    std::copy(metadata.begin(), metadata.end(), frame.metadata.bytes);
    frame.imu = IMUPacket{};
    if (frame.has_imu) {
        getPacket(body, frame.imu);
    }
    frame.packets.resize(packets);
    for (IMUPacket& packet : frame.packets) {
        getPacket(body, packet);
    }
    return body.ok();
}

}  // namespace oru::rlx
