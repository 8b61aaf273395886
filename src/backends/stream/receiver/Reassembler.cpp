#include "backends/stream/receiver/Reassembler.hpp"

#include <utility>

#include "coding/VideoDecoder.hpp"

namespace oru::stream {
namespace {

// A larger jump is another sequence, not a loss.
constexpr uint64_t kMaxGap = 1'000'000;

}  // namespace

Reassembler::Reassembler(CodedQueue& codedQueue, ImuStore& imuStore, FrameLedger& frameLedger,
                         std::atomic<bool>& keyFrameRequest, DescriptionHandler descriptionHandler)
    : queue(codedQueue),
      samples(imuStore),
      ledger(frameLedger),
      keyFrameWanted(keyFrameRequest),
      handler(std::move(descriptionHandler)),
      demuxer(*this) {}

void Reassembler::restart() {
    demuxer.reset();
    videoPresent = false;
    waiting = true;
}

void Reassembler::onVideo(PesPacket& packet) {
    std::swap(video, packet);
    videoPresent = true;
}

void Reassembler::onData(PesPacket& packet) {
    dataPts = packet.pts;
    if (packet.damaged || !packet.has_pts || !reader.read(packet.payload.data(), packet.payload.size(), *this)) {
        ++malformed;
    }
}

void Reassembler::onDescription(DescriptionRecord&& record) {
    handler(std::move(record));
}

void Reassembler::enterSession(uint64_t session) {
    if (sessionKnown && currentSession == session) {
        return;
    }
    if (sessionKnown) {
        samples.clear();
    }
    sessionKnown = true;
    currentSession = session;
    imageSeen = false;
}

bool Reassembler::follow(const FrameRecord& record) {
    const bool jump = record.frame_id > lastId && record.frame_id - lastId > kMaxGap;
    if (!imageSeen || jump) {
        imageSeen = true;
        lastId = record.frame_id;
        lastSkipped = record.skipped_frames;
        waiting = true;
        return true;
    }
    if (record.frame_id <= lastId) {
        return false;
    }
    const uint64_t missing = record.frame_id - lastId - 1;
    const uint64_t skipped = record.skipped_frames - lastSkipped;
    ledger.lost(&FrameCounters::network, missing);
    ledger.lost(&FrameCounters::sender_busy, skipped < kMaxGap ? skipped : 0);
    waiting = waiting || missing > 0;
    lastId = record.frame_id;
    lastSkipped = record.skipped_frames;
    return true;
}

void Reassembler::bookRest(const FrameRecord& record) {
    if (imageSeen && record.frame_id > lastId && record.frame_id - lastId <= kMaxGap) {
        ledger.lost(&FrameCounters::network, record.frame_id - lastId);
        lastId = record.frame_id;
    }
}

bool Reassembler::imageIntact(const FrameRecord& record) const {
    const std::size_t size = video.payload.size();
    if (!videoPresent || video.damaged || !video.has_pts || video.pts != dataPts || record.image_bytes == 0 ||
        record.image_bytes > size) {
        return false;
    }
    return checksum(video.payload.data() + size - record.image_bytes, record.image_bytes) == record.image_crc;
}

void Reassembler::waitForKeyFrame(FrameLedger::Cause cause) {
    ledger.lost(cause);
    waiting = true;
    keyFrameWanted.store(true, std::memory_order_release);
}

void Reassembler::onFrameRecord(const FrameRecord& record, const std::vector<IMUPacket>& packets) {
    enterSession(record.session);
    samples.add(packets);
    if (record.goodbye) {
        bookRest(record);
    }
    ended.store(record.goodbye, std::memory_order_release);
    if (!record.has_image || record.goodbye || !follow(record)) {
        return;
    }
    const bool intact = imageIntact(record);
    videoPresent = false;
    if (!intact || (waiting && !record.key_frame)) {
        waitForKeyFrame(&FrameCounters::damaged);
        return;
    }
    queueImage(record);
}

void Reassembler::queueImage(const FrameRecord& record) {
    std::swap(next.bytes, video.payload);
    next.bytes.resize(next.bytes.size() + coding::VideoDecoder::kPaddingBytes);
    next.padding = coding::VideoDecoder::kPaddingBytes;
    next.codec = demuxer.videoCodec();
    next.record = record;
    if (!queue.push(next)) {
        waitForKeyFrame(&FrameCounters::queue_full);
        return;
    }
    waiting = false;
}

}  // namespace oru::stream
