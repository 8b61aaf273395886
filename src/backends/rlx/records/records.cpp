#include "backends/rlx/records/records.hpp"

#include <algorithm>

#include "backends/rlx/records/crc32c.hpp"

namespace oru::rlx {

namespace {

constexpr uint32_t kHeaderMagic = 0x48584C52;  // "RLXH"
constexpr uint32_t kFrameMagic = 0x46584C52;   // "RLXF"
constexpr std::size_t kHeaderFixedSize = 304;
constexpr std::size_t kFrameFixedSize = 340;

enum HeaderFlag : uint32_t { FLIPPED = 1, DECOMPRESSION_PLATFORM = 2, HAS_IMU = 4, HAS_TRANSFORM = 8 };
enum FrameFlag : uint32_t { KEY = 1, HAS_FRAME_IMU = 2 };

void putPacket(FieldWriter& out, const IMUPacket& packet) {
    out.u64(packet.imu_timestamp);
    out.u64(packet.barometer_timestamp);
    out.u64(packet.magnetometer_timestamp);
    out.i32(packet.sync_count);
    out.floats(packet.orientation);
    out.floats(packet.translation);
    out.floats(packet.vector_1);
    out.floats(packet.vector_2);
    out.floats(packet.vector_3);
    out.floats(packet.vector_4);
    out.floats(packet.variances_a);
    out.floats(packet.variances_b);
    out.floats(packet.orientation_covariance);
    out.u8(packet.sample_state);
    out.u8(packet.valid ? 1 : 0);
    out.u8(packet.magnetometer_available ? 1 : 0);
    out.u8(packet.barometer_available ? 1 : 0);
    out.u8(packet.extra_temperatures_present ? 1 : 0);
    out.zeros(3);
    out.f32(packet.imu_temperature);
    out.floats(packet.magnetic_vector_1);
    out.floats(packet.magnetic_vector_2);
    out.i32(packet.heading_state);
    out.f32(packet.heading_accuracy);
    out.f32(packet.heading);
    out.f32(packet.barometer_temperature);
    out.f32(packet.pressure);
    out.f32(packet.reserved);
    out.f32(packet.relative_altitude);
    out.floats(packet.extra_temperatures);
    out.floats(packet.metadata_orientation);
    out.floats(packet.metadata_translation);
    out.zeros(4);
}

void getPacket(FieldReader& in, IMUPacket& packet) {
    packet.imu_timestamp = in.u64();
    packet.barometer_timestamp = in.u64();
    packet.magnetometer_timestamp = in.u64();
    packet.sync_count = in.i32();
    in.floats(packet.orientation);
    in.floats(packet.translation);
    in.floats(packet.vector_1);
    in.floats(packet.vector_2);
    in.floats(packet.vector_3);
    in.floats(packet.vector_4);
    in.floats(packet.variances_a);
    in.floats(packet.variances_b);
    in.floats(packet.orientation_covariance);
    packet.sample_state = in.u8();
    packet.valid = in.u8() != 0;
    packet.magnetometer_available = in.u8() != 0;
    packet.barometer_available = in.u8() != 0;
    packet.extra_temperatures_present = in.u8() != 0;
    in.bytes(3);
    packet.imu_temperature = in.f32();
    in.floats(packet.magnetic_vector_1);
    in.floats(packet.magnetic_vector_2);
    packet.heading_state = in.i32();
    packet.heading_accuracy = in.f32();
    packet.heading = in.f32();
    packet.barometer_temperature = in.f32();
    packet.pressure = in.f32();
    packet.reserved = in.f32();
    packet.relative_altitude = in.f32();
    in.floats(packet.extra_temperatures);
    in.floats(packet.metadata_orientation);
    in.floats(packet.metadata_translation);
    in.bytes(4);
}

void putChecksum(Bytes& out, std::size_t start) {
    const uint32_t crc = crc32c(out.data() + start, out.size() - start);
    FieldWriter(out).u32(crc);
}

bool checksumHolds(ByteView record) {
    FieldReader tail(record.last(4));
    return crc32c(record.data(), record.size() - 4) == tail.u32();
}

uint32_t headerFlags(const rlxrw::RlxRecordingHeader& facts) {
    const bool second = facts.version == 2;
    return (second && facts.flipped ? FLIPPED : 0U) |
           (second && facts.decompression_platform ? DECOMPRESSION_PLATFORM : 0U) | (facts.has_imu ? HAS_IMU : 0U) |
           (facts.has_imu_to_camera ? HAS_TRANSFORM : 0U);
}

void getHeaderFacts(FieldReader& in, rlxrw::RlxRecordingHeader& facts) {
    facts.serial_number = in.i32();
    facts.model = static_cast<MODEL>(in.i32());
    facts.camera_fw = in.u32();
    facts.sensors_fw = in.u32();
    facts.imu_data_version = in.u32();
    facts.width = in.u32();
    facts.height = in.u32();
    facts.fps = in.f32();
    facts.compression_mode = static_cast<RLX_COMPRESSION_MODE>(in.i32());
    facts.bitrate = in.u32();
    facts.sharpness = in.i32();
    const uint32_t flags = in.u32();
    facts.flipped = (flags & FLIPPED) != 0;
    facts.decompression_platform = (flags & DECOMPRESSION_PLATFORM) != 0;
    facts.has_imu = (flags & HAS_IMU) != 0;
    facts.has_imu_to_camera = (flags & HAS_TRANSFORM) != 0;
    in.floats(facts.imu_calibration.values);
    for (std::size_t i = 0; i < 16; ++i) {
        facts.imu_to_camera(i / 4, i % 4) = in.f32();
    }
}

}  // namespace

void encodeHeader(const HeaderRecord& header, Bytes& out) {
    const std::size_t start = out.size();
    const rlxrw::RlxRecordingHeader& facts = header.facts;
    FieldWriter fields(out);
    fields.u32(kHeaderMagic);
    fields.u32(static_cast<uint32_t>(facts.version));
    fields.u32(
        static_cast<uint32_t>(kHeaderFixedSize + header.codec_private.size() + facts.calibration_text.size() + 4));
    fields.u32(static_cast<uint32_t>(header.codec_private.size()));
    fields.u32(static_cast<uint32_t>(facts.calibration_text.size()));
    fields.u64(header.recording_id);
    fields.i32(facts.serial_number);
    fields.i32(facts.model);
    fields.u32(facts.camera_fw);
    fields.u32(facts.sensors_fw);
    fields.u32(facts.imu_data_version);
    fields.u32(facts.width);
    fields.u32(facts.height);
    fields.f32(facts.fps);
    fields.i32(facts.compression_mode);
    fields.u32(facts.bitrate);
    fields.i32(facts.sharpness);
    fields.u32(headerFlags(facts));
    fields.floats(facts.imu_calibration.values);
    for (std::size_t i = 0; i < 16; ++i) {
        fields.f32(facts.imu_to_camera(i / 4, i % 4));
    }
    fields.zeros(start + kHeaderFixedSize - out.size());
    fields.bytes(header.codec_private);
    out.insert(out.end(), facts.calibration_text.begin(), facts.calibration_text.end());
    putChecksum(out, start);
}

std::optional<HeaderRecord> decodeHeader(ByteView view) {
    FieldReader in(view);
    HeaderRecord header;
    const uint32_t magic = in.u32();
    header.facts.version = static_cast<int>(in.u32());
    const std::size_t size = in.u32();
    const std::size_t privateSize = in.u32();
    const std::size_t textSize = in.u32();
    header.recording_id = in.u64();
    const bool plausible = in.ok() && magic == kHeaderMagic && size <= view.size() && size <= kMaxHeaderSize &&
                           size == kHeaderFixedSize + privateSize + textSize + 4;
    if (!plausible || !checksumHolds(view.first(size))) {
        return std::nullopt;
    }
    getHeaderFacts(in, header.facts);
    FieldReader tail(view.subspan(kHeaderFixedSize));
    const ByteView codecPrivate = tail.bytes(privateSize);
    header.codec_private.assign(codecPrivate.begin(), codecPrivate.end());
    header.facts.calibration_text = tail.text(textSize);
    return header;
}

void encodeFrame(const FrameRecord& frame, int version, Bytes& out) {
    const std::size_t start = out.size();
    const bool withImu = version == 2;
    const std::size_t packets = withImu ? std::min(frame.packets.size(), kMaxPackets) : 0;
    const bool ownPacket = withImu && frame.has_imu;
    FieldWriter fields(out);
    fields.u32(kFrameMagic);
    fields.u32(static_cast<uint32_t>(version));
    fields.u64(frame.recording_id);
    fields.u64(frame.number);
    fields.u64(frame.time_ns);
    fields.u64(frame.time_ms);
    fields.u64(frame.reference_delta);
    fields.u32(frame.image_size);
    fields.u32(frame.image_crc);
    fields.u32((frame.key ? KEY : 0U) | (ownPacket ? HAS_FRAME_IMU : 0U));
    fields.u32(frame.lost_before);
    fields.u32(static_cast<uint32_t>(packets));
    fields.u32(kPacketSize);
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

bool decodeFrame(ByteView view, FrameRecord& frame) {
    if (view.size() < kFrameFixedSize + 4 || view.size() > kMaxRecordSize || !checksumHolds(view)) {
        return false;
    }
    FieldReader in(view);
    const uint32_t magic = in.u32();
    in.u32();
    frame.recording_id = in.u64();
    frame.number = in.u64();
    frame.time_ns = in.u64();
    frame.time_ms = in.u64();
    frame.reference_delta = in.u64();
    frame.image_size = in.u32();
    frame.image_crc = in.u32();
    const uint32_t flags = in.u32();
    frame.key = (flags & KEY) != 0;
    frame.has_imu = (flags & HAS_FRAME_IMU) != 0;
    frame.lost_before = in.u32();
    const std::size_t packets = in.u32();
    const uint32_t packetSize = in.u32();
    const std::size_t expected = kFrameFixedSize + (packets + (frame.has_imu ? 1 : 0)) * kPacketSize + 4;
    if (magic != kFrameMagic || packetSize != kPacketSize || packets > kMaxPackets || view.size() != expected) {
        return false;
    }
    FieldReader body(view.subspan(kFrameFixedSize - sizeof frame.metadata.bytes));
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
