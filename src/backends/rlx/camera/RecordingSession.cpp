#include "backends/rlx/camera/RecordingSession.hpp"

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
    : rlxRecorder(recorder),
      recordingHeader(header),
      systemClock(clock),
      slotBytes(std::size_t{header.width} * header.height * 2),
      started(clock.monotonicNanoseconds()),
      slots(slotsFor(header.fps)) {
    for (Slot& slot : slots) {
        slot.pixels = std::make_unique<unsigned char[]>(slotBytes);
        slot.packets.reserve(64);
    }
    {
        const MutexLock lock(mutex);
        currentStatus.recording = true;
    }
    writer = std::thread([this] { writeUntilStopped(); });
}

void RecordingSession::offer(const Facts& facts, WhenFull whenFull) {
    Slot& slot = slots[freeSlot];
    rlxRecorder.takeWrittenPackets(slot.packets);
    const MutexLock lock(mutex);
    if (failed || stopping || !hasRoom(whenFull)) {
        // The packets stay with the buffer and go with the next frame.
        if (slot.packets.size() > kMaxPacketsOfAFrame) {
            slot.packets.clear();
        }
        drop();
        return;
    }
    slot.facts = facts;
    slot.lost_before = lostFrames;
    lostFrames = 0;
    if (queuedSlots++ == 0) {
        writingSince = systemClock.monotonicNanoseconds();
    }
    freeSlot = (freeSlot + 1) % slots.size();
    changed.notify_all();
}

uint64_t RecordingSession::frameCostNs() const {
    const uint64_t underWay = queuedSlots > 0 ? systemClock.monotonicNanoseconds() - writingSince : 0;
    return std::max(writeNs, underWay);
}

bool RecordingSession::isBehind() const {
    return queuedSlots > 1 && queuedSlots * frameCostNs() > kMaxBacklogNs;
}

bool RecordingSession::hasRoom(WhenFull whenFull) {
    const auto hasRoom = [this]() ORU_REQUIRES(mutex) { return queuedSlots + 1 < slots.size(); };
    if (whenFull == WhenFull::DROP) {
        return hasRoom() && !isBehind();
    }
    const auto deadline = std::chrono::steady_clock::now() + kLongestWait;
    while (!hasRoom() && !failed) {
        if (changed.wait_until(mutex, deadline) == std::cv_status::timeout) {
            break;
        }
    }
    return hasRoom() && !failed;
}

void RecordingSession::drop() {
    ++lostFrames;
    ++currentStatus.frames_dropped;
    if (!failed) {
        sayThatItIsTooSlow();
    }
}

void RecordingSession::sayThatItIsTooSlow() {
    if (!saidSlow) {
        saidSlow = true;
        ORU_LOG(Warning,
                "{} Recording in compression mode {} takes {:.1f} ms a frame and cannot keep up: frames are left out "
                "evenly and counted",
                kTagKoru, static_cast<int>(recordingHeader.compression_mode), static_cast<double>(frameCostNs()) / 1e6);
    }
}

int RecordingSession::writeSlot(Slot& slot) {
    rlxrw::RlxFrame frame;
    frame.pixels = slot.pixels.get();
    frame.size = slotBytes;
    frame.time = slot.facts.time;
    frame.metadata = slot.facts.metadata;
    frame.imu = slot.facts.has_imu ? &slot.facts.imu : nullptr;
    frame.packets = slot.packets.data();
    frame.packet_count = slot.packets.size();
    frame.lost_before = slot.lost_before;
    const int result = rlxRecorder.writeFrame(frame);
    slot.packets.clear();
    return result;
}

void RecordingSession::noteWritten(int result, uint64_t nanoseconds) {
    writeNs = writeNs == 0 ? nanoseconds : (writeNs * (kMeanWeight - 1) + nanoseconds) / kMeanWeight;
    if (result == rlxrw::RLX_WRITTEN) {
        ++currentStatus.frames_written;
    } else {
        failed = true;
        ++currentStatus.frames_dropped;
        currentStatus.last_result = FAILURE;
    }
    currentStatus.bytes_written = rlxRecorder.bytesWritten();
    firstQueued = (firstQueued + 1) % slots.size();
    --queuedSlots;
    changed.notify_all();
}

void RecordingSession::writeUntilStopped() {
    mutex.lock();
    while (!failed && !giveUp && (queuedSlots > 0 || !stopping)) {
        if (queuedSlots == 0) {
            changed.wait(mutex);
            continue;
        }
        Slot& slot = slots[firstQueued];
        writingSince = systemClock.monotonicNanoseconds();
        mutex.unlock();
        const int result = writeSlot(slot);
        mutex.lock();
        noteWritten(result, systemClock.monotonicNanoseconds() - writingSince);
    }
    currentStatus.frames_dropped += queuedSlots;
    queuedSlots = 0;
    mutex.unlock();
    rlxRecorder.close();
    // On a full disk the last frames make room for the index.
    const FrameCounters counters = rlxRecorder.counters();
    mutex.lock();
    if (counters.produced > 0 && counters.delivered < currentStatus.frames_written) {
        currentStatus.frames_dropped += currentStatus.frames_written - counters.delivered;
        currentStatus.frames_written = counters.delivered;
    }
    currentStatus.recording = false;
    currentStatus.seconds = static_cast<double>(systemClock.monotonicNanoseconds() - started) / 1e9;
    changed.notify_all();
    mutex.unlock();
}

void RecordingSession::stop() {
    const auto deadline = std::chrono::steady_clock::now() + kLongestWait;
    {
        const MutexLock lock(mutex);
        stopping = true;
        changed.notify_all();
        while (queuedSlots > 0 && !failed) {
            if (changed.wait_until(mutex, deadline) == std::cv_status::timeout) {
                break;
            }
        }
        giveUp = true;
        changed.notify_all();
    }
    if (writer.joinable()) {
        writer.join();
    }
}

bool RecordingSession::hasFailed() const {
    const MutexLock lock(mutex);
    return failed;
}

RecordingStatus RecordingSession::status() const {
    const MutexLock lock(mutex);
    RecordingStatus status = currentStatus;
    if (status.recording) {
        status.seconds = static_cast<double>(systemClock.monotonicNanoseconds() - started) / 1e9;
    }
    return status;
}

}  // namespace oru::rlx
