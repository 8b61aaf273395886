#include "backends/rlx/RecordingSession.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>

#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::rlx {

namespace {

/// A crash loses what is queued: no more than this, also when the coder is slow.
constexpr double kMaxBacklogSeconds = 0.3;
constexpr uint64_t kMaxBacklogNs = 300'000'000;
constexpr std::size_t kMinSlots = 4;
constexpr std::size_t kMaxSlots = 16;
constexpr uint64_t kMeanWeight = 8;
constexpr std::chrono::seconds kLongestWait{10};
constexpr std::size_t kMaxPacketsOfAFrame = 16'384;

std::size_t slotsFor(float fps) {
    const double frames = std::isfinite(fps) ? static_cast<double>(fps) * kMaxBacklogSeconds : 0.0;
    return std::clamp(static_cast<std::size_t>(std::clamp(frames, 0.0, 100.0)) + 2, kMinSlots, kMaxSlots);
}

}  // namespace

RecordingSession::RecordingSession(rlxrw::RLXVideo& recorder, const rlxrw::RlxRecordingHeader& header, Clock& clock)
    : recorder_(recorder),
      header_(header),
      clock_(clock),
      buffer_size_(std::size_t{header.width} * header.height * 2),
      started_(clock.monotonicNanoseconds()),
      slots_(slotsFor(header.fps)) {
    for (Slot& slot : slots_) {
        slot.pixels = std::make_unique<unsigned char[]>(buffer_size_);
        slot.packets.reserve(64);
    }
    {
        const MutexLock lock(mutex_);
        status_.recording = true;
    }
    writer_ = std::thread([this] { writeUntilStopped(); });
}

void RecordingSession::offer(const Facts& facts, WhenFull when_full) {
    Slot& slot = slots_[free_];
    recorder_.takeWrittenPackets(slot.packets);
    const MutexLock lock(mutex_);
    if (failed_ || stop_ || !hasRoom(when_full)) {
        // The packets stay with the buffer and go with the next frame.
        if (slot.packets.size() > kMaxPacketsOfAFrame) {
            slot.packets.clear();
        }
        drop();
        return;
    }
    slot.facts = facts;
    slot.lost_before = lost_;
    lost_ = 0;
    if (queued_++ == 0) {
        writing_since_ = clock_.monotonicNanoseconds();
    }
    free_ = (free_ + 1) % slots_.size();
    changed_.notify_all();
}

uint64_t RecordingSession::frameCostNs() const {
    const uint64_t under_way = queued_ > 0 ? clock_.monotonicNanoseconds() - writing_since_ : 0;
    return std::max(write_ns_, under_way);
}

bool RecordingSession::isBehind() const {
    return queued_ > 1 && queued_ * frameCostNs() > kMaxBacklogNs;
}

bool RecordingSession::hasRoom(WhenFull when_full) {
    const auto has_room = [this]() ORU_REQUIRES(mutex_) { return queued_ + 1 < slots_.size(); };
    if (when_full == WhenFull::DROP) {
        return has_room() && !isBehind();
    }
    const auto deadline = std::chrono::steady_clock::now() + kLongestWait;
    while (!has_room() && !failed_) {
        if (changed_.wait_until(mutex_, deadline) == std::cv_status::timeout) {
            break;
        }
    }
    return has_room() && !failed_;
}

void RecordingSession::drop() {
    ++lost_;
    ++status_.frames_dropped;
    if (!failed_) {
        sayThatItIsTooSlow();
    }
}

void RecordingSession::sayThatItIsTooSlow() {
    if (!said_slow_) {
        said_slow_ = true;
        ORU_LOG(Warning,
                "{} Recording in compression mode {} takes {:.1f} ms a frame and cannot keep up: frames are left out "
                "evenly and counted",
                kTagKoru, static_cast<int>(header_.compression_mode), static_cast<double>(frameCostNs()) / 1e6);
    }
}

int RecordingSession::writeSlot(Slot& slot) {
    rlxrw::RlxFrame frame;
    frame.pixels = slot.pixels.get();
    frame.size = buffer_size_;
    frame.time = slot.facts.time;
    frame.metadata = slot.facts.metadata;
    frame.imu = slot.facts.has_imu ? &slot.facts.imu : nullptr;
    frame.packets = slot.packets.data();
    frame.packet_count = slot.packets.size();
    frame.lost_before = slot.lost_before;
    const int result = recorder_.writeFrame(frame);
    slot.packets.clear();
    return result;
}

void RecordingSession::noteWritten(int result, uint64_t nanoseconds) {
    write_ns_ = write_ns_ == 0 ? nanoseconds : (write_ns_ * (kMeanWeight - 1) + nanoseconds) / kMeanWeight;
    if (result == 0) {
        ++status_.frames_written;
    } else {
        failed_ = true;
        ++status_.frames_dropped;
        status_.last_result = FAILURE;
    }
    status_.bytes_written = recorder_.bytesWritten();
    first_ = (first_ + 1) % slots_.size();
    --queued_;
    changed_.notify_all();
}

void RecordingSession::writeUntilStopped() {
    mutex_.lock();
    while (!failed_ && !give_up_ && (queued_ > 0 || !stop_)) {
        if (queued_ == 0) {
            changed_.wait(mutex_);
            continue;
        }
        Slot& slot = slots_[first_];
        writing_since_ = clock_.monotonicNanoseconds();
        mutex_.unlock();
        const int result = writeSlot(slot);
        mutex_.lock();
        noteWritten(result, clock_.monotonicNanoseconds() - writing_since_);
    }
    status_.frames_dropped += queued_;
    queued_ = 0;
    mutex_.unlock();
    recorder_.close();
    // On a full disk the last frames make room for the index.
    const FrameCounters counters = recorder_.counters();
    mutex_.lock();
    if (counters.produced > 0 && counters.delivered < status_.frames_written) {
        status_.frames_dropped += status_.frames_written - counters.delivered;
        status_.frames_written = counters.delivered;
    }
    status_.recording = false;
    status_.seconds = static_cast<double>(clock_.monotonicNanoseconds() - started_) / 1e9;
    changed_.notify_all();
    mutex_.unlock();
}

void RecordingSession::stop() {
    const auto deadline = std::chrono::steady_clock::now() + kLongestWait;
    {
        const MutexLock lock(mutex_);
        stop_ = true;
        changed_.notify_all();
        while (queued_ > 0 && !failed_) {
            if (changed_.wait_until(mutex_, deadline) == std::cv_status::timeout) {
                break;
            }
        }
        give_up_ = true;
        changed_.notify_all();
    }
    if (writer_.joinable()) {
        writer_.join();
    }
}

bool RecordingSession::hasFailed() const {
    const MutexLock lock(mutex_);
    return failed_;
}

RecordingStatus RecordingSession::status() const {
    const MutexLock lock(mutex_);
    RecordingStatus status = status_;
    if (status.recording) {
        status.seconds = static_cast<double>(clock_.monotonicNanoseconds() - started_) / 1e9;
    }
    return status;
}

}  // namespace oru::rlx
