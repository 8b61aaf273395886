#include "backends/rlx/FileRecorder.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <random>

#include "backends/rlx/crc32c.hpp"
#include "backends/rlx/finish.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::rlx {

namespace {

constexpr std::size_t kMaxPending = 64;
constexpr uint64_t kNanosecondsPerMillisecond = 1'000'000;
constexpr std::chrono::milliseconds kSyncPeriod{500};
constexpr std::size_t kFirstFramesDropped = 1;

enum CreateResult { CREATED = 0, NOT_CREATABLE = 1, NO_ENCODER = 2 };
enum WriteResult { WRITTEN = 0, CANNOT_GROW = 1, ENCODER_FAILED = 2 };

uint64_t newRecordingId() {
    std::random_device source;
    return (uint64_t{source()} << 32) | source();
}

bool sizeCanBeCoded(const rlxrw::RlxRecordingHeader& facts) {
    constexpr uint32_t kMaxSide = 16'384;
    const bool even_height = facts.height % 2 == 0 || isIntraOnly(facts.compression_mode);
    return facts.width > 0 && facts.height > 0 && facts.width <= kMaxSide && facts.height <= kMaxSide &&
           facts.width % 2 == 0 && even_height;
}

}  // namespace

int FileRecorder::create(const std::string& path, const rlxrw::RlxRecordingHeader& facts) {
    close();
    encoder_ = sizeCanBeCoded(facts) ? makeEncoder(facts) : nullptr;
    if (encoder_ == nullptr) {
        ORU_LOG(Error, "{} No encoder for RLX compression mode {} at {}x{}", kTagKoru,
                static_cast<int>(facts.compression_mode), facts.width, facts.height);
        return NO_ENCODER;
    }
    header_ = {facts, newRecordingId(), encoder_->codecPrivate()};
    pending_.resize(kMaxPending);
    first_pending_ = 0;
    next_number_ = 0;
    entries_.clear();
    write_failed_ = false;
    written_ = 0;
    offered_ = 0;
    sync_failed_ = false;
    sink_ = [this](const CodedPicture& picture) { return append(picture); };
    if (!openFile(path)) {
        ORU_LOG(Error, "{} Cannot create {}: {}", kTagKoru, path, std::strerror(errno));
        file_.close();
        return NOT_CREATABLE;
    }
    {
        const MutexLock lock(sync_mutex_);
        stop_syncing_ = false;
    }
    syncer_ = std::thread([this] { syncWhileOpen(); });
    return CREATED;
}

bool FileRecorder::openFile(const std::string& path) {
    path_ = path;
    if (!file_.createToWrite(path, true)) {
        return false;
    }
    if (!file_.isRegular()) {
        errno = EINVAL;
        return false;
    }
    const Bytes head = buildHead(header_, std::nullopt);
    if (!file_.lockAlone() || !file_.resize(0) || !file_.writeAt(0, head)) {
        return false;
    }
    end_ = head.size();
    syncDirectoryOf(path);
    return true;
}

FrameRecord& FileRecorder::pendingSlot() {
    return pending_[next_number_ % kMaxPending];
}

int FileRecorder::writeFrame(const rlxrw::RlxFrame& frame) {
    const std::size_t expected = std::size_t{header_.facts.width} * header_.facts.height * 2;
    if (!isOpen() || write_failed_ || sync_failed_.load(std::memory_order_relaxed)) {
        return CANNOT_GROW;
    }
    if (frame.pixels == nullptr || frame.size != expected || next_number_ - first_pending_ >= kMaxPending) {
        return ENCODER_FAILED;
    }
    offered_.fetch_add(1, std::memory_order_relaxed);
    FrameRecord& record = pendingSlot();
    record.recording_id = header_.recording_id;
    record.number = next_number_++;
    record.time_ns = frame.time;
    record.lost_before = frame.lost_before;
    record.metadata = frame.metadata;
    record.has_imu = frame.imu != nullptr;
    record.imu = frame.imu != nullptr ? *frame.imu : IMUPacket{};
    record.packets.assign(frame.packets, frame.packets + frame.packet_count);
    const bool coded = encoder_->encode(frame.pixels, record.number, sink_);
    if (write_failed_) {
        return CANNOT_GROW;
    }
    return coded ? WRITTEN : ENCODER_FAILED;
}

void FileRecorder::describePicture(const CodedPicture& picture, FrameRecord& frame) {
    if (entries_.empty()) {
        first_time_ns_ = frame.time_ns;
    }
    const uint64_t last_ms = entries_.empty() ? 0 : entries_.back().time_ms;
    const uint64_t since = frame.time_ns > first_time_ns_ ? frame.time_ns - first_time_ns_ : 0;
    frame.time_ms = std::max(last_ms, (since + kNanosecondsPerMillisecond / 2) / kNanosecondsPerMillisecond);
    frame.key = picture.key;
    frame.reference_delta = picture.key ? 0 : frame.time_ms - last_ms;
    frame.picture_size = static_cast<uint32_t>(picture.bytes.size());
    frame.picture_crc = crc32c(picture.bytes.data(), picture.bytes.size());
}

bool FileRecorder::append(const CodedPicture& picture) {
    if (picture.number != first_pending_ || picture.bytes.size() > UINT32_MAX / 2) {
        return false;
    }
    FrameRecord& frame = pending_[first_pending_++ % kMaxPending];
    describePicture(picture, frame);
    record_.clear();
    encodeFrame(frame, header_.facts.version, record_);
    prefix_.clear();
    buildPrefix(frame, record_.size(), prefix_);
    suffix_.clear();
    buildSuffixFraming(frame, record_.size(), suffix_);
    const std::size_t total = prefix_.size() + picture.bytes.size() + suffix_.size() + record_.size();
    const uint64_t end = end_.load(std::memory_order_relaxed);
    iovec parts[] = {{prefix_.data(), prefix_.size()},
                     {const_cast<uint8_t*>(picture.bytes.data()), picture.bytes.size()},
                     {suffix_.data(), suffix_.size()},
                     {record_.data(), record_.size()}};
    if (!file_.writePartsAt(end, parts, 4)) {
        ORU_LOG(Error, "{} Cannot write to {}: {}", kTagKoru, path_, std::strerror(errno));
        write_failed_ = true;
        return false;
    }
    entries_.push_back({end, frame.time_ns, static_cast<uint32_t>(total), frame.key, frame.time_ms});
    end_.store(end + total, std::memory_order_relaxed);
    written_.fetch_add(1, std::memory_order_relaxed);
    return true;
}

void FileRecorder::close() {
    if (!isOpen()) {
        return;
    }
    if (!write_failed_ && !encoder_->finish(sink_)) {
        ORU_LOG(Warning, "{} The last frames of {} could not be coded", kTagKoru, path_);
    }
    stopSyncing();
    finish();
    file_.close();
    encoder_.reset();
}

void FileRecorder::finish() {
    std::size_t dropped = 0;
    std::size_t drop = kFirstFramesDropped;
    while (!finishRecording(file_, header_, entries_, end_.load())) {
        const bool full = errno == ENOSPC || errno == EFBIG || errno == EDQUOT;
        if (!full || entries_.empty()) {
            ORU_LOG(Error, "{} Cannot complete {}: {}; it can be repaired", kTagKoru, path_, std::strerror(errno));
            return;
        }
        // The index needs room as well: the last frames make it.
        for (std::size_t i = 0; i < drop && !entries_.empty(); ++i) {
            end_ = entries_.back().offset;
            entries_.pop_back();
            ++dropped;
        }
        drop *= 2;
    }
    if (dropped > 0) {
        ORU_LOG(Warning, "{} The last {} frames of {} made room for its index", kTagKoru, dropped, path_);
        written_.fetch_sub(dropped);
    }
}

void FileRecorder::syncWhileOpen() {
    uint64_t synced = 0;
    sync_mutex_.lock();
    while (!stop_syncing_) {
        (void)sync_wake_.wait_for(sync_mutex_, kSyncPeriod);
        const uint64_t end = end_.load(std::memory_order_relaxed);
        if (stop_syncing_ || end == synced) {
            continue;
        }
        sync_mutex_.unlock();
        synced = end;
        if (!file_.syncData()) {
            ORU_LOG(Error, "{} Cannot bring {} to the disk: {}", kTagKoru, path_, std::strerror(errno));
            sync_failed_.store(true, std::memory_order_relaxed);
        }
        sync_mutex_.lock();
    }
    sync_mutex_.unlock();
}

void FileRecorder::stopSyncing() {
    {
        const MutexLock lock(sync_mutex_);
        stop_syncing_ = true;
    }
    sync_wake_.notify_all();
    if (syncer_.joinable()) {
        syncer_.join();
    }
}

}  // namespace oru::rlx
