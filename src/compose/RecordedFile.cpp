#include "oru/RecordedFile.hpp"

#include <algorithm>

#include "collaborators/CollaboratorFactory.hpp"
#include "compose/built_in_factory.hpp"
#include "compose/modules/modules.hpp"

namespace oru {
namespace {

constexpr const char* kVersionOneEnd = ".rlx";
constexpr std::size_t kBytesPerPixel = 2;

std::unique_ptr<rlxrw::RLXVideo> makeVideo(CollaboratorFactory::RlxRole role) {
    registerBuiltInFactory();
    const auto factory = CollaboratorFactory::processDefault();
    return factory == nullptr ? nullptr : factory->makeRlxVideo(role);
}

RecordingFacts factsOf(const rlxrw::RlxRecordingHeader& header) {
    RecordingFacts facts;
    facts.version = header.version;
    facts.serial_number = header.serial_number;
    facts.model = header.model;
    facts.camera_firmware = header.camera_fw;
    facts.sensors_firmware = header.sensors_fw;
    facts.size = {header.width, header.height};
    facts.fps = header.fps;
    facts.flipped = header.flipped;
    facts.decompression_platform = header.decompression_platform;
    facts.compression_mode = header.compression_mode;
    facts.bitrate = header.bitrate;
    facts.sharpness = header.sharpness;
    facts.has_imu = header.has_imu;
    facts.has_imu_to_camera = header.has_imu_to_camera;
    if (header.has_imu_to_camera) {
        facts.imu_to_camera = Transform(header.imu_to_camera);
    }
    facts.imu_calibration = header.imu_calibration.values;
    facts.calibration_text = header.calibration_text;
    return facts;
}

Vector3<float> vectorOf(const std::array<float, 3>& values) {
    return {values[0], values[1], values[2]};
}

std::vector<RecordedSample> samplesFrom(const std::vector<IMUPacket>& packets) {
    std::vector<RecordedSample> samples;
    samples.reserve(packets.size());
    for (const IMUPacket& packet : packets) {
        RecordedSample& sample = samples.emplace_back();
        sample.timestamp = packet.imu_timestamp;
        sample.synced_with_image = packet.sync_count > 0;
        sample.angular_velocity = vectorOf(packet.vector_3);
        sample.linear_acceleration = vectorOf(packet.vector_4);
        sample.orientation = {packet.orientation[0], packet.orientation[1], packet.orientation[2],
                              packet.orientation[3]};
        sample.temperature = packet.imu_temperature;
    }
    return samples;
}

/// The image's bytes; null unless it is a packed YUYV image of this size in host memory.
unsigned char* packedPixels(const Mat& image, const rlxrw::RlxRecordingHeader& header) {
    const bool fits =
        image.getDataType() == U8_C2 && image.getWidth() == header.width && image.getHeight() == header.height;
    return fits ? image.getPtr<unsigned char>(CPU) : nullptr;
}

std::size_t imageBytes(const rlxrw::RlxRecordingHeader& header) {
    return std::size_t{header.width} * header.height * kBytesPerPixel;
}

ERROR_CODE codeOf(FrameStatus status) {
    switch (status) {
        case NEW_FRAME:
            return SUCCESS;
        case NO_FRAME:
            return CAMERA_NOT_READY;
        case INPUT_ENDED:
            return END_OF_INPUT;
        default:
            return FAILURE;
    }
}

}  // namespace

struct RecordedFile::Opened {
    RECORDING_CONDITION condition = RECORDING_CONDITION::MISSING;
    RecordingFacts facts;
    std::unique_ptr<RecordingIndex> index;    // null while nothing is open
    std::unique_ptr<rlxrw::RLXVideo> reader;  // null where the images cannot be decoded
};

RecordedFile::RecordedFile() : opened(std::make_unique<Opened>()) {}
RecordedFile::~RecordedFile() = default;

ERROR_CODE RecordedFile::open(const String& path, bool follow) {
    *opened = {};
    const std::unique_ptr<RecordingTools> tools = recordingTools();
    std::unique_ptr<rlxrw::RLXVideo> reader = makeVideo(CollaboratorFactory::RlxRole::reader);
    if (tools == nullptr || reader == nullptr) {
        return NOT_SUPPORTED;
    }
    std::unique_ptr<RecordingIndex> index = tools->openIndex(path.get());
    opened->condition = index->condition();
    if (index->header().version != 0) {
        opened->facts = factsOf(index->header());
    }
    if (!index->isPlayable() && !follow) {
        return RLX_FILE_UNREADABLE;
    }
    reader->follow(follow);
    const int result = reader->open(path.c_str());
    if (result == rlxrw::RLX_DAMAGED) {
        return RLX_FILE_UNREADABLE;
    }
    opened->index = std::move(index);
    if (result != rlxrw::RLX_OPENED) {
        return RLX_CODEC_UNAVAILABLE;
    }
    opened->reader = std::move(reader);
    return SUCCESS;
}

void RecordedFile::close() {
    *opened = {};
}

RECORDING_CONDITION RecordedFile::condition() const {
    return opened->condition;
}

const RecordingFacts& RecordedFile::facts() const {
    return opened->facts;
}

int RecordedFile::frameCount() const {
    if (opened->reader != nullptr) {
        return opened->reader->frameCount();
    }
    return opened->index == nullptr ? 0 : static_cast<int>(opened->index->frameTimes().size());
}

Timestamp RecordedFile::frameTime(int frame) const {
    if (frame < 0 || frame >= frameCount()) {
        return 0;
    }
    return opened->reader != nullptr ? opened->reader->frameTime(frame)
                                     : opened->index->frameTimes()[static_cast<std::size_t>(frame)];
}

int RecordedFile::frameAt(Timestamp time) const {
    int first = 0;
    int last = frameCount();
    while (first < last) {
        const int middle = first + (last - first) / 2;
        if (frameTime(middle) < time) {
            first = middle + 1;
        } else {
            last = middle;
        }
    }
    return first;
}

int RecordedFile::position() const {
    return opened->reader == nullptr ? 0 : opened->reader->position();
}

void RecordedFile::setPosition(int frame) {
    if (opened->reader != nullptr) {
        opened->reader->setPosition(frame);
    }
}

ERROR_CODE RecordedFile::readFrame(Mat& image) {
    if (opened->reader == nullptr) {
        return INVALID_CALL;
    }
    const rlxrw::RlxRecordingHeader& header = opened->index->header();
    if (const ERROR_CODE code = image.alloc({header.width, header.height}, U8_C2, CPU); code != SUCCESS) {
        return code;
    }
    return codeOf(opened->reader->readFrame(packedPixels(image, header), imageBytes(header), image.timestamp));
}

std::vector<RecordedSample> RecordedFile::samples() const {
    return opened->reader == nullptr ? std::vector<RecordedSample>{}
                                     : samplesFrom(opened->reader->getFrameIMUPackets());
}

std::vector<RecordedSample> RecordedFile::samplesOf(int frame) const {
    return opened->index == nullptr ? std::vector<RecordedSample>{} : samplesFrom(opened->index->packets(frame));
}

std::vector<RecordedSample> RecordedFile::samplesBetween(Timestamp first, Timestamp last) const {
    std::vector<RecordedSample> found;
    // A frame carries the samples up to its own time, and now and then a late one of the frame before.
    const int end = std::min(frameAt(last) + 2, frameCount());
    for (int frame = frameAt(first); frame < end; ++frame) {
        for (const RecordedSample& sample : samplesOf(frame)) {
            if (sample.timestamp >= first && sample.timestamp <= last) {
                found.push_back(sample);
            }
        }
    }
    return found;
}

FrameCounters RecordedFile::getFrameCounters() const {
    return opened->reader == nullptr ? FrameCounters{} : opened->reader->counters();
}

RecordingCheck RecordedFile::verify(const String& path, const RecordingProgress& progress) {
    const std::unique_ptr<RecordingTools> tools = recordingTools();
    return tools == nullptr ? RecordingCheck{RECORDING_CONDITION::UNREADABLE} : tools->verify(path.get(), progress);
}

RecordingRepair RecordedFile::repair(const String& path, const String& output, const RecordingProgress& progress) {
    const std::unique_ptr<RecordingTools> tools = recordingTools();
    return tools == nullptr ? RecordingRepair{REPAIR_UNREADABLE, RECORDING_CONDITION::UNREADABLE}
                            : tools->repair(path.get(), output.get(), progress);
}

struct RecordedFileWriter::Created {
    std::unique_ptr<rlxrw::RLXVideo> recorder;
    int next = -1;  // frame of the source behind the one written last; -1 before the first
};

namespace {

/// The packets of a frame, with those of the frames from `first` on that the caller left out.
std::vector<IMUPacket> packetsSince(int first, rlxrw::RLXVideo& reader, RecordingIndex& index) {
    std::vector<IMUPacket> packets;
    for (int frame = first; first >= 0 && frame < reader.position() - 1; ++frame) {
        const std::vector<IMUPacket> skipped = index.packets(frame);
        packets.insert(packets.end(), skipped.begin(), skipped.end());
    }
    // Of damaged frames the reader has them as well.
    const std::size_t gathered = packets.size();
    for (const IMUPacket& packet : reader.getFrameIMUPackets()) {
        const bool known =
            std::any_of(packets.begin(), packets.begin() + static_cast<std::ptrdiff_t>(gathered),
                        [&](const IMUPacket& other) { return other.imu_timestamp == packet.imu_timestamp; });
        if (!known) {
            packets.push_back(packet);
        }
    }
    return packets;
}

}  // namespace

RecordedFileWriter::RecordedFileWriter() : created(std::make_unique<Created>()) {}

RecordedFileWriter::~RecordedFileWriter() {
    close();
}

ERROR_CODE RecordedFileWriter::create(const String& path, const RecordedFile& source, RLX_COMPRESSION_MODE mode) {
    close();
    if (source.opened->index == nullptr) {
        return INVALID_CALL;
    }
    std::unique_ptr<rlxrw::RLXVideo> recorder = makeVideo(CollaboratorFactory::RlxRole::recorder);
    if (recorder == nullptr) {
        return NOT_SUPPORTED;
    }
    rlxrw::RlxRecordingHeader header = source.opened->index->header();
    header.compression_mode = mode;
    header.version = path.get().ends_with(kVersionOneEnd) ? 1 : 2;
    if (const int result = recorder->create(path.c_str(), header); result != 0) {
        return result == 2 ? RLX_CODEC_UNAVAILABLE : INVALID_PARAMETER;
    }
    created->recorder = std::move(recorder);
    created->next = -1;
    return SUCCESS;
}

ERROR_CODE RecordedFileWriter::write(const Mat& image, RecordedFile& source) {
    if (created->recorder == nullptr || source.opened->reader == nullptr) {
        return INVALID_CALL;
    }
    rlxrw::RLXVideo& reader = *source.opened->reader;
    const rlxrw::RlxRecordingHeader& header = source.opened->index->header();
    const std::vector<IMUPacket> packets = packetsSince(created->next, reader, *source.opened->index);
    IMUPacket imu;
    rlxrw::RlxFrame record;
    record.pixels = packedPixels(image, header);
    record.size = imageBytes(header);
    record.time = image.timestamp;
    record.imu = reader.getFrameIMU(imu) ? &imu : nullptr;
    (void)reader.getCurrentMetadata(record.metadata);
    record.packets = packets.data();
    record.packet_count = packets.size();
    if (record.pixels == nullptr) {
        return INVALID_PARAMETER;
    }
    created->next = reader.position();
    return created->recorder->writeFrame(record) == 0 ? SUCCESS : FAILURE;
}

void RecordedFileWriter::close() {
    if (created->recorder != nullptr) {
        created->recorder->close();
        created->recorder.reset();
    }
}

}  // namespace oru
