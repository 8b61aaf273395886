#include "backends/rlx/FrameDecoder.hpp"

namespace oru::rlx {

FrameDecoder::FrameDecoder(const OpenedFile& recording, const std::vector<IndexEntry>& entries,
                           std::unique_ptr<PictureDecoder> decoder)
    : recording_(recording),
      entries_(entries),
      decoder_(std::move(decoder)),
      intra_only_(isIntraOnly(recording.header.facts.compression_mode)),
      picture_bytes_(std::size_t{recording.header.facts.width} * recording.header.facts.height * 2) {}

int FrameDecoder::keyBefore(int index) const {
    while (index > 0 && !entries_[static_cast<std::size_t>(index)].key) {
        --index;
    }
    return index;
}

void FrameDecoder::decode(int index, DecodedFrame& out) {
    const int key = intra_only_ ? index : keyBefore(index);
    if (next_ < key || next_ > index) {
        next_ = key;
        chain_whole_ = false;
    }
    while (next_ < index) {
        step(next_, nullptr);
    }
    step(index, &out);
}

void FrameDecoder::step(int index, DecodedFrame* out) {
    readStoredFrame(recording_, entries_[static_cast<std::size_t>(index)], stored_);
    next_ = index + 1;
    const bool whole = stored_.check == FrameCheck::WHOLE;
    if (out != nullptr) {
        out->index = index;
        out->quality = FrameQuality::DAMAGED;
        out->record_whole = stored_.record_whole;
        if (stored_.record_whole) {
            describe(*out);
        }
    }
    if (whole && stored_.frame.key && !intra_only_ && !chain_whole_) {
        decoder_->reset();
    }
    const bool builds_on_whole =
        intra_only_ || stored_.frame.key || (chain_whole_ && stored_.frame.number == next_number_);
    if (!whole || !builds_on_whole) {
        chain_whole_ = false;
        return;
    }
    unsigned char* pixels = nullptr;
    if (out != nullptr) {
        out->pixels.resize(picture_bytes_);
        pixels = out->pixels.data();
    }
    const bool decoded = decoder_->decode(stored_.picture, pixels) == DecodeResult::PICTURE;
    chain_whole_ = decoded;
    next_number_ = stored_.frame.number + 1;
    if (out != nullptr) {
        out->quality = decoded ? FrameQuality::WHOLE : FrameQuality::DECODE_FAILED;
    }
}

void FrameDecoder::describe(DecodedFrame& out) const {
    const FrameRecord& frame = stored_.frame;
    out.time = frame.time_ns;
    out.metadata = frame.metadata;
    out.has_imu = frame.has_imu;
    out.imu = frame.imu;
    out.packets.assign(frame.packets.begin(), frame.packets.end());
}

}  // namespace oru::rlx
