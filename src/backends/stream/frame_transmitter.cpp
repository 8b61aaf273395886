#include "frame_transmitter.hpp"

#include <algorithm>

namespace oru::stream {

FrameTransmitter::FrameTransmitter(Audience& audience, CameraFacts& facts, SampleQueue& samples, uint64_t session)
    : audience_(audience), facts_(facts), queue_(samples), session_(session) {}

bool FrameTransmitter::open(const UDPOutConfig& configuration) {
    settings_.codec = configuration.codec == DENSE_CODEC ? VideoCodec::H265 : VideoCodec::H264;
    settings_.width = configuration.width;
    settings_.height = configuration.height;
    settings_.fps = configuration.fps;
    settings_.bitrate = configuration.bitrate;
    settings_.gop_size = configuration.gop_size;
    record_.reserve(kMaxFrameRecordBytes);
    return encoder_.open(settings_) && muxer_.open(settings_.codec, settings_.width, settings_.height);
}

bool FrameTransmitter::sendFrame(const OutgoingFrame& frame, bool key_frame, uint64_t skipped) {
    Pending& facts = pending_[nextPending_++ % kPending];
    facts = {frame.picture->pts, frame.id, frame.timestamp, frame.metadata};
    const auto output = [&](const VideoEncoder::Coded& coded) { transmit(coded, skipped); };
    if (encoder_.encode(*frame.picture, key_frame, output)) {
        return true;
    }
    (void)encoder_.open(settings_);
    return false;
}

void FrameTransmitter::transmit(const VideoEncoder::Coded& coded, uint64_t skipped) {
    const auto found =
        std::find_if(pending_.begin(), pending_.end(), [&](const Pending& facts) { return facts.pts == coded.pts; });
    if (found == pending_.end()) {
        return;
    }
    FrameRecord record;
    record.key_frame = coded.key_frame;
    record.has_picture = true;
    record.has_metadata = metadataPresent(found->metadata);
    record.picture_bytes = static_cast<uint32_t>(coded.size);
    record.picture_crc = checksum(coded.data, coded.size);
    record.session = session_;
    record.frame_id = found->id;
    record.timestamp_ns = found->timestamp;
    record.skipped_frames = skipped;
    record.metadata = found->metadata;
    muxer_.clear();
    if (coded.key_frame) {
        writeDescriptionPacket(coded.pts);
    }
    // The record comes last: its arrival tells the receiver that the picture is complete.
    if (muxer_.writeVideo(coded.data, coded.size, coded.pts, coded.key_frame)) {
        writeRecordPacket(record, coded.pts);
    }
    audience_.send(muxer_.finish(), coded.key_frame ? Audience::Part::KEY_FRAME : Audience::Part::FRAME);
}

void FrameTransmitter::sendSamples(int64_t pts, uint64_t last_id, bool describe) {
    FrameRecord record;
    record.session = session_;
    record.frame_id = last_id;
    muxer_.clear();
    if (describe) {
        writeDescriptionPacket(pts);
    }
    writeRecordPacket(record, pts);
    audience_.send(muxer_.finish(), describe ? Audience::Part::DESCRIPTION : Audience::Part::SAMPLES);
}

void FrameTransmitter::dropSamples() {
    queue_.clear();
    samples_.clear();
}

void FrameTransmitter::writeDescriptionPacket(int64_t pts) {
    muxer_.repeatTables();
    record_.clear();
    facts_.withDescription([this](const DescriptionRecord& description) { writeDescription(record_, description); });
    (void)muxer_.writeData(record_, pts);
}

void FrameTransmitter::writeRecordPacket(const FrameRecord& record, int64_t pts) {
    record_.clear();
    queue_.drainTo(samples_);
    const std::size_t written = writeFrameRecord(record_, record, samples_.data(), samples_.size());
    samples_.erase(samples_.begin(), samples_.begin() + static_cast<std::ptrdiff_t>(written));
    (void)muxer_.writeData(record_, pts);
}

}  // namespace oru::stream
