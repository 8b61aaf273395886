#include "frame_intake.hpp"

#include <utility>

#include "video_decoder.hpp"

namespace oru::stream {
namespace {

// A larger jump is another sequence, not a loss.
constexpr uint64_t kMaxGap = 1000000;

}  // namespace

FrameIntake::FrameIntake(CodedQueue& queue, ImuStore& samples, FrameLedger& ledger, std::atomic<bool>& key_frame_wanted,
                         DescriptionHandler handler)
    : queue_(queue),
      samples_(samples),
      ledger_(ledger),
      keyFrameWanted_(key_frame_wanted),
      handler_(std::move(handler)),
      demuxer_(*this) {}

void FrameIntake::restart() {
    demuxer_.reset();
    videoPresent_ = false;
    waiting_ = true;
}

void FrameIntake::onVideo(PesPacket& packet) {
    std::swap(video_, packet);
    videoPresent_ = true;
}

void FrameIntake::onData(PesPacket& packet) {
    dataPts_ = packet.pts;
    if (packet.damaged || !packet.has_pts || !reader_.read(packet.payload.data(), packet.payload.size(), *this)) {
        ++malformed_;
    }
}

void FrameIntake::onDescription(DescriptionRecord&& record) {
    handler_(std::move(record));
}

void FrameIntake::enterSession(uint64_t session) {
    if (sessionKnown_ && session_ == session) {
        return;
    }
    if (sessionKnown_) {
        samples_.clear();
    }
    sessionKnown_ = true;
    session_ = session;
    pictureSeen_ = false;
}

bool FrameIntake::follow(const FrameRecord& record) {
    const bool jump = record.frame_id > lastId_ && record.frame_id - lastId_ > kMaxGap;
    if (!pictureSeen_ || jump) {
        pictureSeen_ = true;
        lastId_ = record.frame_id;
        lastSkipped_ = record.skipped_frames;
        waiting_ = true;
        return true;
    }
    if (record.frame_id <= lastId_) {
        return false;
    }
    const uint64_t missing = record.frame_id - lastId_ - 1;
    const uint64_t skipped = record.skipped_frames - lastSkipped_;
    ledger_.lost(&FrameCounters::network, missing);
    ledger_.lost(&FrameCounters::sender_busy, skipped < kMaxGap ? skipped : 0);
    waiting_ = waiting_ || missing > 0;
    lastId_ = record.frame_id;
    lastSkipped_ = record.skipped_frames;
    return true;
}

bool FrameIntake::pictureIntact(const FrameRecord& record) const {
    const std::size_t size = video_.payload.size();
    if (!videoPresent_ || video_.damaged || !video_.has_pts || video_.pts != dataPts_ || record.picture_bytes == 0 ||
        record.picture_bytes > size) {
        return false;
    }
    return checksum(video_.payload.data() + size - record.picture_bytes, record.picture_bytes) == record.picture_crc;
}

void FrameIntake::waitForKeyFrame(FrameLedger::Cause cause) {
    ledger_.lost(cause);
    waiting_ = true;
    keyFrameWanted_.store(true, std::memory_order_release);
}

void FrameIntake::onFrameRecord(const FrameRecord& record, const std::vector<IMUPacket>& packets) {
    enterSession(record.session);
    samples_.add(packets);
    if (!record.has_picture || !follow(record)) {
        return;
    }
    const bool intact = pictureIntact(record);
    videoPresent_ = false;
    if (!intact || (waiting_ && !record.key_frame)) {
        waitForKeyFrame(&FrameCounters::damaged);
        return;
    }
    queuePicture(record);
}

void FrameIntake::queuePicture(const FrameRecord& record) {
    std::swap(next_.bytes, video_.payload);
    next_.bytes.resize(next_.bytes.size() + VideoDecoder::kPadding);
    next_.padding = VideoDecoder::kPadding;
    next_.codec = demuxer_.videoCodec();
    next_.record = record;
    if (!queue_.push(next_)) {
        waitForKeyFrame(&FrameCounters::queue_full);
        return;
    }
    waiting_ = false;
}

}  // namespace oru::stream
