#include "backends/stream/sender/FrameTransmitter.hpp"

#include <algorithm>

#include "collaborators/frame_metadata.hpp"

namespace oru::stream {
namespace {

constexpr int kTicksPerSecond = 90'000;
constexpr int kFallbackFps = 30;

}  // namespace

FrameTransmitter::FrameTransmitter(Subscribers& receivers, CameraDescriber& cameraDescriber, SampleQueue& sampleQueue,
                                   uint64_t sessionNumber)
    : subscribers(receivers), describer(cameraDescriber), queue(sampleQueue), session(sessionNumber) {}

bool FrameTransmitter::open(const UDPOutConfig& configuration) {
    settings.use = coding::CodecUse::STREAMING;
    settings.codec = configuration.codec == DENSE_CODEC ? VideoCodec::H265 : VideoCodec::H264;
    settings.width = configuration.width;
    settings.height = configuration.height;
    settings.fps = configuration.fps > 0 ? configuration.fps : kFallbackFps;
    settings.ticks_per_second = kTicksPerSecond;
    settings.bitrate = configuration.bitrate;
    settings.gop_size = configuration.gop_size > 0 ? configuration.gop_size : 2 * kFallbackFps;
    recordBytes.reserve(kMaxFrameRecordBytes);
    writer.open(settings.codec);
    return openEncoder();
}

bool FrameTransmitter::openEncoder() {
    return std::ranges::any_of(coding::encoders(), [this](const coding::Encoder& candidate) {
        return coding::serves(candidate, settings.codec, settings.use) && encoder.open(candidate, settings);
    });
}

bool FrameTransmitter::sendFrame(const OutgoingFrame& frame, int64_t pts, bool keyFrame, uint64_t skipped) {
    pending[nextPending++ % kPending] = {pts, frame.id, frame.timestamp, frame.metadata};
    const auto output = [&](const coding::VideoEncoder::Coded& coded) {
        transmit(coded, skipped);
        return true;
    };
    if (encoder.encode(*frame.image, pts, keyFrame, output)) {
        return true;
    }
    (void)openEncoder();
    return false;
}

void FrameTransmitter::transmit(const coding::VideoEncoder::Coded& coded, uint64_t skipped) {
    const auto found =
        std::find_if(pending.begin(), pending.end(), [&](const PendingFrame& frame) { return frame.pts == coded.pts; });
    if (found == pending.end()) {
        return;
    }
    FrameRecord record;
    record.key_frame = coded.key_frame;
    record.has_image = true;
    record.has_metadata = rlxrw::hasSample(found->metadata);
    record.image_bytes = static_cast<uint32_t>(coded.size);
    record.image_crc = checksum(coded.data, coded.size);
    record.session = session;
    record.frame_id = found->id;
    record.timestamp_ns = found->timestamp;
    record.skipped_frames = skipped;
    record.metadata = found->metadata;
    writer.begin(static_cast<uint64_t>(coded.pts), coded.key_frame);
    if (coded.key_frame) {
        writeDescriptionPacket();
    }
    writer.writeVideo({coded.data, coded.size}, coded.key_frame);
    send(coded.key_frame ? StreamBlock::Kind::KEY_FRAME : StreamBlock::Kind::FRAME, record, record.frame_id - 1);
}

void FrameTransmitter::sendSamples(int64_t pts, uint64_t lastId, bool describe) {
    FrameRecord record;
    record.session = session;
    record.frame_id = lastId;
    writer.begin(static_cast<uint64_t>(pts), describe);
    if (describe) {
        writeDescriptionPacket();
    }
    send(describe ? StreamBlock::Kind::DESCRIPTION : StreamBlock::Kind::SAMPLES, record, lastId);
}

void FrameTransmitter::sayGoodbye(int64_t pts, uint64_t lastId, uint64_t skipped) {
    queue.drainTo(samples);
    while (!samples.empty()) {
        sendSamples(pts, lastId, false);
    }
    FrameRecord record;
    record.goodbye = true;
    record.session = session;
    record.frame_id = lastId;
    record.skipped_frames = skipped;
    writer.begin(static_cast<uint64_t>(pts), false);
    send(StreamBlock::Kind::GOODBYE, record, lastId);
}

void FrameTransmitter::send(StreamBlock::Kind kind, const FrameRecord& record, uint64_t frameBefore) {
    // The record comes last: its arrival tells the receiver that the image is complete.
    const std::size_t written = writeRecordPacket(record);
    StreamBlock block;
    block.kind = kind;
    block.bytes = writer.block();
    block.table_bytes = writer.tableBytes();
    block.data_counter = writer.firstDataCounter();
    block.pts = writer.pts();
    block.session = session;
    block.frame_before = frameBefore;
    block.samples = {samples.data(), written};
    subscribers.send(block);
    samples.erase(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(written));
}

void FrameTransmitter::setSamplesAside() {
    queue.drainTo(samples);
    subscribers.keepSamples(samples);
    samples.clear();
}

void FrameTransmitter::writeDescriptionPacket() {
    recordBytes.clear();
    describer.withDescription(
        [this](const DescriptionRecord& description) { writeDescription(recordBytes, description); });
    writer.writeData(recordBytes);
}

std::size_t FrameTransmitter::writeRecordPacket(const FrameRecord& record) {
    recordBytes.clear();
    queue.drainTo(samples);
    const std::size_t written = writeFrameRecord(recordBytes, record, samples.data(), samples.size());
    writer.writeData(recordBytes);
    return written;
}

}  // namespace oru::stream
