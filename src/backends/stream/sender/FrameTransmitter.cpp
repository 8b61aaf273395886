#include "backends/stream/sender/FrameTransmitter.hpp"

#include <algorithm>
#include <utility>

namespace oru::stream {

FrameTransmitter::FrameTransmitter(Subscribers& receivers, CameraDescriber& facts, SampleQueue& sampleQueue,
                                   uint64_t sessionNumber)
    : subscribers(receivers), cameraFacts(facts), queue(sampleQueue), session(sessionNumber) {}

bool FrameTransmitter::open(const UDPOutConfig& configuration) {
    settings.codec = configuration.codec == DENSE_CODEC ? VideoCodec::H265 : VideoCodec::H264;
    settings.width = configuration.width;
    settings.height = configuration.height;
    settings.fps = configuration.fps;
    settings.bitrate = configuration.bitrate;
    settings.gop_size = configuration.gop_size;
    recordBytes.reserve(kMaxFrameRecordBytes);
    writer.open(settings.codec);
    return encoder.open(settings);
}

bool FrameTransmitter::sendFrame(const OutgoingFrame& frame, bool key_frame, uint64_t skipped) {
    Pending& facts = pending[nextPending++ % kPending];
    facts = {frame.image->pts, frame.id, frame.timestamp, frame.metadata};
    const auto output = [&](const VideoEncoder::Coded& coded) { transmit(coded, skipped); };
    if (encoder.encode(*frame.image, key_frame, output)) {
        return true;
    }
    (void)encoder.open(settings);
    return false;
}

void FrameTransmitter::transmit(const VideoEncoder::Coded& coded, uint64_t skipped) {
    const auto found =
        std::find_if(pending.begin(), pending.end(), [&](const Pending& facts) { return facts.pts == coded.pts; });
    if (found == pending.end()) {
        return;
    }
    FrameRecord record;
    record.key_frame = coded.key_frame;
    record.has_image = true;
    record.has_metadata = metadataPresent(found->metadata);
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
    // The record comes last: its arrival tells the receiver that the image is complete.
    writer.writeVideo({coded.data, coded.size}, coded.key_frame);
    writeRecordPacket(record);
    frameBefore = record.frame_id - 1;
    send(coded.key_frame ? Subscribers::Part::KEY_FRAME : Subscribers::Part::FRAME);
}

void FrameTransmitter::sendSamples(int64_t pts, uint64_t last_id, bool describe) {
    FrameRecord record;
    record.session = session;
    record.frame_id = last_id;
    writer.begin(static_cast<uint64_t>(pts), describe);
    if (describe) {
        writeDescriptionPacket();
    }
    writeRecordPacket(record);
    frameBefore = last_id;
    send(describe ? Subscribers::Part::DESCRIPTION : Subscribers::Part::SAMPLES);
}

void FrameTransmitter::send(Subscribers::Part part) {
    subscribers.send(
        {writer.block(), writer.tableBytes(), part, std::exchange(firstSample, history.end()), history.end()}, *this);
}

uint64_t FrameTransmitter::write(std::vector<uint8_t>& target, const Subscribers::Block& block, uint64_t first) {
    FrameRecord record;
    record.session = session;
    record.frame_id = frameBefore;
    const auto missed = history.run(first, block.first_sample);
    recordBytes.clear();
    const std::size_t written = writeFrameRecord(recordBytes, record, missed.data(), missed.size());
    writeDataPackets(target, {recordBytes, writer.pts(), writer.firstDataCounter()});
    return first + written;
}

void FrameTransmitter::setSamplesAside() {
    queue.drainTo(samples);
    history.append(samples);
    samples.clear();
    firstSample = history.end();
}

void FrameTransmitter::writeDescriptionPacket() {
    recordBytes.clear();
    cameraFacts.withDescription(
        [this](const DescriptionRecord& description) { writeDescription(recordBytes, description); });
    writer.writeData(recordBytes);
}

void FrameTransmitter::writeRecordPacket(const FrameRecord& record) {
    recordBytes.clear();
    queue.drainTo(samples);
    const std::size_t written = writeFrameRecord(recordBytes, record, samples.data(), samples.size());
    history.append({samples.data(), written});
    samples.erase(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(written));
    writer.writeData(recordBytes);
}

}  // namespace oru::stream
