#include "backends/stream/wire/records.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

extern "C" {
#include <libavutil/crc.h>
}

#include "oru_input/mcu/imu_fields.hpp"
#include "utils/bytes.hpp"

namespace oru::stream {
namespace {

using Key = std::array<uint8_t, 16>;

// A private universal label: class 15 of the public space, then this system's name and the record's number.
constexpr Key kFrameKey = {0x06, 0x0E, 0x2B, 0x34, 0x01, 0x01, 0x01, 0x01, 0x0F, 'K', 'O', 'R', 'U', 0x01, 0x00, 0x01};
constexpr Key kDescriptionKey = {0x06, 0x0E, 0x2B, 0x34, 0x01, 0x01, 0x01, 0x01,
                                 0x0F, 'K',  'O',  'R',  'U',  0x01, 0x00, 0x02};

constexpr uint8_t kRecordVersion = 1;
constexpr uint8_t kKeyFrame = 1;
constexpr uint8_t kHasMetadata = 2;
constexpr uint8_t kHasImage = 4;
constexpr uint8_t kGoodbye = 8;
constexpr uint8_t kHasImu = 1;
constexpr uint8_t kFlipped = 2;
constexpr uint8_t kPoseKnown = 4;
constexpr uint8_t kRegionKnown = 8;
constexpr uint8_t kValueKnown = 1;
constexpr uint8_t kRangeKnown = 2;
constexpr uint8_t kHasImuCalibration = 1;
constexpr std::size_t kImuCountAt = 2;
constexpr std::size_t kMaxSampleBytes = 4 + sizeof(IMUPacket);  // the field mask and every field
constexpr std::size_t kLengthBytes = 3;
constexpr uint8_t kLongLength = 0x80 | kLengthBytes;

/// Writes key and length, and fills the length in when the record is complete.
class Triplet {
public:
    Triplet(std::vector<uint8_t>& bytes, const Key& key) : writer(bytes), target(bytes) {
        writer.put(key);
        writer.put(kLongLength);
        writer.zeros(kLengthBytes);
        start = target.size();
    }
    void close() {
        const std::span<uint8_t> length(target.data() + start - kLengthBytes, kLengthBytes);
        storeNumber<std::endian::big>(target.size() - start, length);
    }
    [[nodiscard]] std::size_t begin() const { return start; }
    LittleEndianWriter writer;

private:
    std::vector<uint8_t>& target;
    std::size_t start = 0;
};

uint8_t flag(bool on, uint8_t bit) {
    return on ? bit : uint8_t{0};
}

bool readLength(LittleEndianReader& reader, std::size_t& length) {
    uint8_t first = 0;
    if (!reader.get(first)) {
        return false;
    }
    length = first;
    if (first < 0x80) {
        return true;
    }
    const std::size_t count = first & 0x7F;
    if (count == 0 || count > 4) {
        return false;
    }
    length = loadNumber<std::endian::big>(reader.bytes(count));
    return reader.ok();
}

void writeControls(LittleEndianWriter& writer, const std::vector<ControlState>& controls) {
    const std::size_t count = std::min(controls.size(), kMaxControls);
    writer.put(static_cast<uint16_t>(count));
    for (std::size_t i = 0; i < count; ++i) {
        const ControlState& state = controls[i];
        writer.put(static_cast<int32_t>(state.control));
        writer.put(static_cast<uint8_t>(flag(state.value_known, kValueKnown) | flag(state.range_known, kRangeKnown)));
        writer.put(state.value);
        writer.put(state.minimum);
        writer.put(state.maximum);
    }
}

bool readControls(LittleEndianReader& reader, std::vector<ControlState>& controls) {
    uint16_t count = 0;
    if (!reader.get(count) || count > kMaxControls) {
        return false;
    }
    controls.resize(count);
    for (ControlState& state : controls) {
        int32_t control = 0;
        uint8_t known = 0;
        reader.get(control);
        reader.get(known);
        reader.get(state.value);
        reader.get(state.minimum);
        reader.get(state.maximum);
        state.control = static_cast<VIDEO_SETTINGS>(control);
        state.value_known = (known & kValueKnown) != 0;
        state.range_known = (known & kRangeKnown) != 0;
    }
    return reader.ok();
}

/// Writes a mask of the fields whose bytes differ from `previous`, then those fields.
void writeSample(LittleEndianWriter& writer, const IMUPacket& sample, const IMUPacket& previous) {
    const std::size_t maskAt = writer.size();
    writer.put(uint32_t{0});
    uint32_t mask = 0;
    uint32_t bit = 1;
    const auto writeChanged = [&](const auto& field, const auto& before) {
        if (std::memcmp(&field, &before, sizeof(field)) != 0) {
            mask |= bit;
            writer.put(field);
        }
        bit <<= 1;
    };
    visitImuFields(writeChanged, sample, previous);
    writer.patch(maskAt, mask);
}

/// Reads one sample over `sample`, which holds the one before it.
bool readSample(LittleEndianReader& reader, IMUPacket& sample) {
    auto mask = reader.get<uint32_t>();
    const auto readChanged = [&](auto& field) {
        if ((mask & 1) != 0) {
            reader.get(field);
        }
        mask >>= 1;
    };
    visitImuFields(readChanged, sample);
    return reader.ok();
}

bool isFinite(std::span<const float> values) {
    return std::ranges::all_of(values, [](float value) { return std::isfinite(value); });
}

void writeImuCalibration(LittleEndianWriter& writer, const std::optional<ImuCalibration>& calibration) {
    if (calibration) {
        writer.put(kHasImuCalibration);
        writer.put(calibration->values);
    }
}

/// Senders that know nothing of it end their record before.
bool readImuCalibration(LittleEndianReader& reader, std::optional<ImuCalibration>& calibration) {
    uint8_t flags = 0;
    if (reader.remaining() == 0 || !reader.get(flags) || (flags & kHasImuCalibration) == 0) {
        return reader.ok();
    }
    reader.get(calibration.emplace().values);
    if (!isFinite(calibration->values)) {
        calibration.reset();
    }
    return reader.ok();
}

void dropImpossible(DescriptionRecord& record) {
    const StreamImuPose& pose = record.pose;
    if (!isFinite(std::array{pose.w, pose.x, pose.y, pose.z, pose.tx, pose.ty, pose.tz})) {
        record.pose = {};
        record.pose_known = false;
    }
    if (record.fps < 0 || record.fps > kMaxFps) {
        record.fps = 0;
    }
}

bool sizeAcceptable(const StreamDescription& camera) {
    const auto side = [](uint32_t value) { return value >= 2 && value <= kMaxImageSide && value % 2 == 0; };
    return side(camera.width) && side(camera.height);
}

}  // namespace

std::size_t writeFrameRecord(std::vector<uint8_t>& target, const FrameRecord& record, const IMUPacket* packets,
                             std::size_t count) {
    Triplet triplet(target, kFrameKey);
    LittleEndianWriter& writer = triplet.writer;
    const std::size_t start = triplet.begin();
    writer.put(kRecordVersion);
    writer.put(static_cast<uint8_t>(flag(record.key_frame, kKeyFrame) | flag(record.has_metadata, kHasMetadata) |
                                    flag(record.has_image, kHasImage) | flag(record.goodbye, kGoodbye)));
    writer.put(uint16_t{0});
    writer.put(record.image_bytes);
    writer.put(record.image_crc);
    writer.put(record.session);
    writer.put(record.frame_id);
    writer.put(record.timestamp_ns);
    writer.put(record.skipped_frames);
    if (record.has_metadata) {
        writer.bytes(record.metadata.bytes);
    }
    IMUPacket previous{};
    std::size_t written = 0;
    while (written < std::min(count, kMaxImuPerRecord) &&
           writer.size() - start + kMaxSampleBytes <= kMaxFrameRecordBytes) {
        writeSample(writer, packets[written], previous);
        previous = packets[written++];
    }
    writer.patch(start + kImuCountAt, static_cast<uint16_t>(written));
    triplet.close();
    return written;
}

void writeDescription(std::vector<uint8_t>& target, const DescriptionRecord& record) {
    Triplet triplet(target, kDescriptionKey);
    LittleEndianWriter& writer = triplet.writer;
    const StreamDescription& camera = record.camera;
    writer.put(kRecordVersion);
    writer.put(record.version_byte);
    writer.put(static_cast<uint8_t>(flag(camera.has_imu, kHasImu) | flag(camera.flip_state != 0, kFlipped) |
                                    flag(record.pose_known, kPoseKnown) | flag(record.region_known, kRegionKnown)));
    writer.put(uint8_t{0});
    writer.put(record.session);
    writer.put(static_cast<int32_t>(camera.serial_number));
    writer.put(static_cast<int32_t>(camera.model));
    writer.put(static_cast<uint32_t>(camera.camera_fw));
    writer.put(static_cast<uint32_t>(camera.sensors_fw));
    writer.put(camera.width);
    writer.put(camera.height);
    writer.put(record.fps);
    for (const float value :
         {record.pose.w, record.pose.x, record.pose.y, record.pose.z, record.pose.tx, record.pose.ty, record.pose.tz}) {
        writer.put(value);
    }
    for (const uint64_t value : {record.region.x, record.region.y, record.region.width, record.region.height}) {
        writer.put(static_cast<uint32_t>(value));
    }
    writeControls(writer, record.controls);
    const bool fits = record.calibration.size() <= kMaxCalibrationBytes;
    writer.put(static_cast<uint32_t>(fits ? record.calibration.size() : 0));
    if (fits) {
        target.insert(target.end(), record.calibration.begin(), record.calibration.end());
    }
    writeImuCalibration(writer, record.imu_calibration);
    triplet.close();
}

bool RecordReader::read(const uint8_t* data, std::size_t size, RecordSink& sink) {
    LittleEndianReader reader({data, size});
    while (reader.remaining() > 0) {
        Key key{};
        std::size_t length = 0;
        reader.get(key);
        if (!readLength(reader, length) || length > reader.remaining()) {
            return false;
        }
        const ByteView content = reader.bytes(length);
        if (key == kFrameKey && !readFrame(content, sink)) {
            return false;
        }
        if (key == kDescriptionKey && !readDescription(content, sink)) {
            return false;
        }
    }
    return true;
}

bool RecordReader::readFrame(ByteView content, RecordSink& sink) {
    LittleEndianReader reader(content);
    FrameRecord record;
    uint8_t version = 0;
    uint8_t flags = 0;
    uint16_t count = 0;
    reader.get(version);
    reader.get(flags);
    reader.get(count);
    reader.get(record.image_bytes);
    reader.get(record.image_crc);
    reader.get(record.session);
    reader.get(record.frame_id);
    reader.get(record.timestamp_ns);
    reader.get(record.skipped_frames);
    record.key_frame = (flags & kKeyFrame) != 0;
    record.has_metadata = (flags & kHasMetadata) != 0;
    record.has_image = (flags & kHasImage) != 0;
    record.goodbye = (flags & kGoodbye) != 0;
    if (record.has_metadata) {
        std::ranges::copy(reader.bytes(sizeof(record.metadata.bytes)), record.metadata.bytes);
    }
    if (!reader.ok() || version != kRecordVersion || count > kMaxImuPerRecord) {
        return false;
    }
    samples.resize(count);
    IMUPacket previous{};
    for (IMUPacket& sample : samples) {
        sample = previous;
        if (!readSample(reader, sample)) {
            return false;
        }
        previous = sample;
    }
    sink.onFrameRecord(record, samples);
    return true;
}

bool RecordReader::readDescription(ByteView content, RecordSink& sink) {
    LittleEndianReader reader(content);
    DescriptionRecord record;
    StreamDescription& camera = record.camera;
    uint8_t version = 0;
    uint8_t flags = 0;
    uint8_t reserved = 0;
    int32_t serial = 0;
    int32_t model = 0;
    uint32_t cameraFirmware = 0;
    uint32_t sensorsFirmware = 0;
    reader.get(version);
    reader.get(record.version_byte);
    reader.get(flags);
    reader.get(reserved);
    reader.get(record.session);
    reader.get(serial);
    reader.get(model);
    reader.get(cameraFirmware);
    reader.get(sensorsFirmware);
    reader.get(camera.width);
    reader.get(camera.height);
    reader.get(record.fps);
    for (float* value : {&record.pose.w, &record.pose.x, &record.pose.y, &record.pose.z, &record.pose.tx,
                         &record.pose.ty, &record.pose.tz}) {
        reader.get(*value);
    }
    std::array<uint32_t, 4> region{};
    reader.get(region);
    if (!reader.ok() || version != kRecordVersion || !sizeAcceptable(camera) ||
        !readControls(reader, record.controls)) {
        return false;
    }
    uint32_t length = 0;
    reader.get(length);
    if (!reader.ok() || length > kMaxCalibrationBytes || length > reader.remaining()) {
        return false;
    }
    const ByteView calibration = reader.bytes(length);
    record.calibration.assign(calibration.begin(), calibration.end());
    if (!readImuCalibration(reader, record.imu_calibration)) {
        return false;
    }
    camera.serial_number = serial;
    camera.model = static_cast<MODEL>(model);
    camera.camera_fw = cameraFirmware;
    camera.sensors_fw = sensorsFirmware;
    camera.has_imu = (flags & kHasImu) != 0;
    camera.flip_state = (flags & kFlipped) != 0 ? 1 : 0;
    record.pose_known = (flags & kPoseKnown) != 0;
    record.region_known = (flags & kRegionKnown) != 0;
    record.region = {region[0], region[1], region[2], region[3]};
    dropImpossible(record);
    sink.onDescription(std::move(record));
    return true;
}

uint32_t checksum(const uint8_t* data, std::size_t size) {
    return av_crc(av_crc_get_table(AV_CRC_32_IEEE_LE), UINT32_MAX, data, size) ^ UINT32_MAX;
}

}  // namespace oru::stream
