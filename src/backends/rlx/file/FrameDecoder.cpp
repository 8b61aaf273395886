#include "backends/rlx/file/FrameDecoder.hpp"

namespace oru::rlx {

FrameDecoder::FrameDecoder(const OpenedFile& recording, const std::vector<IndexEntry>& entries,
                           std::unique_ptr<ImageDecoder> decoder)
    : openedFile(recording),
      indexEntries(entries),
      imageDecoder(std::move(decoder)),
      intraOnly(isIntraOnly(recording.header.facts.compression_mode)) {}

int FrameDecoder::keyBefore(int index) const {
    while (index > 0 && !indexEntries[static_cast<std::size_t>(index)].key) {
        --index;
    }
    return index;
}

bool FrameDecoder::decode(int index, DecodedFrame& out, const std::atomic<bool>& interrupted) noexcept {
    try {
        return goTo(index, out, interrupted);
    } catch (...) {
        next = index + 1;
        chainWhole = false;
        out.index = index;
        out.quality = FrameQuality::DECODE_FAILED;
        out.record_whole = false;
        return true;
    }
}

bool FrameDecoder::goTo(int index, DecodedFrame& out, const std::atomic<bool>& interrupted) {
    const int key = intraOnly ? index : keyBefore(index);
    if (next < key || next > index) {
        next = key;
        chainWhole = false;
    }
    while (next < index) {
        if (interrupted) {
            return false;
        }
        step(next, nullptr);
    }
    step(index, &out);
    return true;
}

void FrameDecoder::step(int index, DecodedFrame* out) {
    readStoredFrame(openedFile, indexEntries[static_cast<std::size_t>(index)], stored);
    next = index + 1;
    const bool whole = stored.check == FrameCheck::WHOLE;
    if (out != nullptr) {
        out->index = index;
        out->quality = FrameQuality::DAMAGED;
        out->record_whole = stored.record_whole;
        if (stored.record_whole) {
            describe(*out);
        }
    }
    if (whole && stored.frame.key && !intraOnly && !chainWhole) {
        imageDecoder->reset();
    }
    const bool buildsOnWhole = intraOnly || stored.frame.key || (chainWhole && stored.frame.number == nextNumber);
    if (!whole || !buildsOnWhole) {
        chainWhole = false;
        return;
    }
    const bool decoded = imageDecoder->decode(stored.image, out == nullptr ? nullptr : &out->pixels);
    chainWhole = decoded;
    nextNumber = stored.frame.number + 1;
    if (out != nullptr) {
        out->quality = decoded ? FrameQuality::WHOLE : FrameQuality::DECODE_FAILED;
    }
}

void FrameDecoder::describe(DecodedFrame& out) const {
    const FrameRecord& frame = stored.frame;
    out.time = frame.time_ns;
    out.metadata = frame.metadata;
    out.has_imu = frame.has_imu;
    out.imu = frame.imu;
    out.packets.assign(frame.packets.begin(), frame.packets.end());
}

}  // namespace oru::rlx
