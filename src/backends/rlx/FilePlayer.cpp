#include "backends/rlx/FilePlayer.hpp"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::rlx {

namespace {

constexpr int kOpened = 0;
constexpr int kDamaged = 1;
constexpr int kNotDecodable = 2;
constexpr int kReadWaitMs = 200;
constexpr std::size_t kMaxPassedOver = 65'536;

}  // namespace

int FilePlayer::open(const std::string& path) {
    close();
    recording_ = openRecording(path, false);
    Condition condition = recording_.condition;
    if (condition == Condition::INTACT) {
        condition = loadIndex(recording_, entries_);
    }
    if (condition != Condition::INTACT) {
        ORU_LOG(Warning, "{} {} {}", kTagInit, path, describe(condition));
        recording_ = OpenedFile{};
        entries_.clear();
        return kDamaged;
    }
    auto decoder = makeDecoder(recording_.header.facts, recording_.header.codec_private);
    if (decoder == nullptr) {
        ORU_LOG(Warning, "{} {} has compression mode {}, which cannot be decoded here", kTagInit, path,
                static_cast<int>(recording_.header.facts.compression_mode));
        recording_ = OpenedFile{};
        entries_.clear();
        return kNotDecodable;
    }
    decoder_ = std::make_unique<FrameDecoder>(recording_, entries_, std::move(decoder));
    delivered_ = late_ = damaged_ = decode_failed_ = 0;
    {
        const MutexLock lock(mutex_);
        stop_ = false;
    }
    restartAt(0);
    worker_ = std::thread([this] { decodeAhead(); });
    return kOpened;
}

void FilePlayer::close() {
    {
        const MutexLock lock(mutex_);
        stop_ = true;
    }
    wake_.notify_all();
    if (worker_.joinable()) {
        worker_.join();
    }
    decoder_.reset();
    recording_ = OpenedFile{};
    entries_.clear();
    for (DecodedFrame& slot : ring_) {
        slot = DecodedFrame{};
    }
    restartAt(0);
}

Timestamp FilePlayer::frameTime(int index) const {
    return index >= 0 && index < frameCount() ? entries_[static_cast<std::size_t>(index)].time_ns : 0;
}

void FilePlayer::restartAt(int index) {
    const MutexLock lock(mutex_);
    ++generation_;
    filled_ = 0;
    next_to_decode_ = index;
    position_ = index;
    has_current_ = false;
    passed_over_.clear();
    wake_.notify_all();
}

void FilePlayer::setPosition(int index) {
    restartAt(std::clamp(index, 0, frameCount()));
}

void FilePlayer::decodeAhead() {
    mutex_.lock();
    while (!stop_) {
        if (filled_ == kAhead || next_to_decode_ >= static_cast<int>(entries_.size())) {
            wake_.wait(mutex_);
            continue;
        }
        const uint64_t generation = generation_;
        const int index = next_to_decode_;
        DecodedFrame& slot = ring_[(front_ + filled_) % kAhead];
        mutex_.unlock();
        decoder_->decode(index, slot);
        mutex_.lock();
        if (generation == generation_) {
            ++filled_;
            next_to_decode_ = index + 1;
            wake_.notify_all();
        }
    }
    mutex_.unlock();
}

DecodedFrame* FilePlayer::waitForFront(int wait_ms) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(wait_ms);
    while (filled_ == 0) {
        if (wake_.wait_until(mutex_, deadline) == std::cv_status::timeout) {
            break;
        }
    }
    return filled_ == 0 ? nullptr : &ring_[front_];
}

void FilePlayer::popFront() {
    front_ = (front_ + 1) % kAhead;
    --filled_;
    ++position_;
    wake_.notify_all();
}

void FilePlayer::joinPackets(DecodedFrame& frame) {
    if (frame.record_whole && passed_over_.size() + frame.packets.size() <= kMaxPassedOver) {
        passed_over_.insert(passed_over_.end(), frame.packets.begin(), frame.packets.end());
    }
}

void FilePlayer::takeFacts(DecodedFrame& frame) {
    joinPackets(frame);
    current_.index = frame.index;
    current_.time = frame.time;
    current_.metadata = frame.metadata;
    current_.has_imu = frame.has_imu;
    current_.imu = frame.imu;
    current_.packets.swap(passed_over_);
    passed_over_.clear();
    has_current_ = true;
}

void FilePlayer::skipFrame() {
    const MutexLock lock(mutex_);
    if (position_ >= static_cast<int>(entries_.size())) {
        return;
    }
    // Waits for the decoder, which has to go through the frame anyway where frames build on each other.
    DecodedFrame* frame = waitForFront(kReadWaitMs);
    if (frame == nullptr) {
        return;
    }
    if (frame->quality == FrameQuality::WHOLE) {
        ++late_;
        joinPackets(*frame);
    } else {
        leaveOut(*frame);
    }
    popFront();
}

void FilePlayer::leaveOut(DecodedFrame& frame) {
    const bool damaged = frame.quality == FrameQuality::DAMAGED;
    if (damaged_ + decode_failed_ == 0) {
        ORU_LOG(Warning, "{} Frames of the recording are damaged and left out, the first is frame {}", kTagKoru,
                frame.index);
    }
    ORU_LOG(Debug, "{} Frame {} of the recording is {}", kTagKoru, frame.index, damaged ? "damaged" : "not decodable");
    ++(damaged ? damaged_ : decode_failed_);
    joinPackets(frame);
}

FrameStatus FilePlayer::readFrame(unsigned char* pixels, std::size_t size, Timestamp& time) {
    if (!isOpen()) {
        return SOURCE_UNAVAILABLE;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kReadWaitMs);
    const MutexLock lock(mutex_);
    while (position_ < static_cast<int>(entries_.size())) {
        DecodedFrame* frame = waitForFront(kReadWaitMs);
        if (frame == nullptr) {
            return NO_FRAME;
        }
        if (frame->quality == FrameQuality::WHOLE) {
            if (pixels == nullptr || frame->pixels.size() != size) {
                return SOURCE_ERROR;
            }
            std::memcpy(pixels, frame->pixels.data(), size);
            time = frame->time;
            takeFacts(*frame);
            ++delivered_;
            popFront();
            return NEW_FRAME;
        }
        leaveOut(*frame);
        popFront();
        if (std::chrono::steady_clock::now() >= deadline) {
            return NO_FRAME;
        }
    }
    return INPUT_ENDED;
}

bool FilePlayer::metadata(rlxrw::rlxSampleMetadata& out) const {
    const MutexLock lock(mutex_);
    if (has_current_) {
        out = current_.metadata;
    }
    return has_current_;
}

bool FilePlayer::imuOfImage(IMUPacket& out) const {
    const MutexLock lock(mutex_);
    const bool known = has_current_ && current_.has_imu;
    if (known) {
        out = current_.imu;
    }
    return known;
}

bool FilePlayer::newestImu(IMUPacket& out) const {
    {
        const MutexLock lock(mutex_);
        if (has_current_ && !current_.packets.empty()) {
            out = current_.packets.back();
            return true;
        }
    }
    return imuOfImage(out);
}

std::vector<IMUPacket> FilePlayer::packets() const {
    const MutexLock lock(mutex_);
    return has_current_ ? current_.packets : std::vector<IMUPacket>{};
}

FrameCounters FilePlayer::counters() const {
    FrameCounters counters;
    counters.delivered = delivered_.load();
    counters.late = late_.load();
    counters.damaged = damaged_.load();
    counters.decode_failed = decode_failed_.load();
    counters.produced = counters.delivered + counters.lost();
    return counters;
}

}  // namespace oru::rlx
