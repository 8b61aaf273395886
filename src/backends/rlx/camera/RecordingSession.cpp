#include "backends/rlx/camera/RecordingSession.hpp"

#include <pthread.h>

#include <algorithm>
#include <cmath>
#include <condition_variable>

#include "backends/rlx/file/guarded.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"
#include "utils/Mutex.hpp"

namespace oru::rlx {

namespace {

/// A crash loses what is queued: no more than this, also when the coder is slow.
constexpr double kMaxBacklogSeconds = 0.3;
constexpr uint64_t kMaxBacklogNs = 300'000'000;
constexpr std::size_t kMinSlots = 4;
constexpr std::size_t kMaxSlots = 16;
constexpr uint64_t kMeanWeight = 8;
constexpr std::size_t kMaxPacketsOfAFrame = 16'384;

std::size_t slotsFor(float fps) {
    const double frames = std::isfinite(fps) ? static_cast<double>(fps) * kMaxBacklogSeconds : 0.0;
    return std::clamp(static_cast<std::size_t>(std::clamp(frames, 0.0, 100.0)) + 2, kMinSlots, kMaxSlots);
}

/// Writes through a recorder that has no file of its own to share.
class BorrowedRecorder final : public rlxrw::RecordingFile {
public:
    explicit BorrowedRecorder(rlxrw::RLXVideo& recorder) : rlxRecorder(recorder) {}

    int writeFrame(const rlxrw::RlxFrame& frame) override { return rlxRecorder.writeFrame(frame); }
    void close() override { rlxRecorder.close(); }
    uint64_t bytesWritten() const override { return rlxRecorder.bytesWritten(); }
    FrameCounters counters() const override { return rlxRecorder.counters(); }

private:
    rlxrw::RLXVideo& rlxRecorder;
};

}  // namespace

struct RecordingSession::Slot {
    std::unique_ptr<unsigned char[]> pixels;
    Facts facts;
    std::vector<IMUPacket> packets;
    uint32_t lost_before = 0;
};

/// What the writing thread touches. Once it is `abandoned` it uses nothing else: neither recorder nor clock.
struct RecordingSession::Shared {
    Shared(rlxrw::RLXVideo& recorder, const rlxrw::RlxRecordingHeader& header, Clock& clock);

    void writeUntilStopped();
    [[nodiscard]] int writeSlot(Slot& slot) const;
    void noteWritten(int result) ORU_REQUIRES(mutex);
    void noteEnd() ORU_REQUIRES(mutex);
    [[nodiscard]] bool hasRoom(WhenFull whenFull) ORU_REQUIRES(mutex);
    [[nodiscard]] bool isBehind() const ORU_REQUIRES(mutex);
    /// What a frame costs the writer, as measured, or more when it is at one for longer.
    [[nodiscard]] uint64_t frameCostNs() const ORU_REQUIRES(mutex);
    [[nodiscard]] double secondsSinceStart() const ORU_REQUIRES(mutex);
    void drop() ORU_REQUIRES(mutex);
    void sayThatItIsTooSlow() ORU_REQUIRES(mutex);
    /// Waits for `done`; false when it is not so within `limit`.
    template <class Done>
    bool waitFor(std::chrono::milliseconds limit, const Done& done) ORU_REQUIRES(mutex);
    [[nodiscard]] bool end(std::chrono::milliseconds limit);
    void abandon() ORU_REQUIRES(mutex);

    const rlxrw::RlxRecordingHeader recordingHeader;
    Clock& systemClock;
    const std::size_t slotBytes;
    const uint64_t started;
    std::shared_ptr<rlxrw::RecordingFile> file;
    bool canBeLeft = false;
    std::vector<Slot> slots;  // a ring: queued ones from firstQueued, then the free one

    mutable Mutex mutex;
    std::condition_variable_any changed;
    std::size_t firstQueued ORU_GUARDED_BY(mutex) = 0;
    std::size_t queuedSlots ORU_GUARDED_BY(mutex) = 0;
    bool stopping ORU_GUARDED_BY(mutex) = false;
    bool giveUp ORU_GUARDED_BY(mutex) = false;
    bool abandoned ORU_GUARDED_BY(mutex) = false;
    bool ended ORU_GUARDED_BY(mutex) = false;
    bool saidSlow ORU_GUARDED_BY(mutex) = false;
    bool failed ORU_GUARDED_BY(mutex) = false;
    std::string failureReason ORU_GUARDED_BY(mutex);
    uint64_t writeNs ORU_GUARDED_BY(mutex) = 0;  // running mean of one frame
    uint64_t writingSince ORU_GUARDED_BY(mutex) = 0;
    uint32_t lostFrames ORU_GUARDED_BY(mutex) = 0;  // since the last frame taken
    RecordingStatus currentStatus ORU_GUARDED_BY(mutex);
};

RecordingSession::Shared::Shared(rlxrw::RLXVideo& recorder, const rlxrw::RlxRecordingHeader& header, Clock& clock)
    : recordingHeader(header),
      systemClock(clock),
      slotBytes(std::size_t{header.width} * header.height * 2),
      started(clock.monotonicNanoseconds()),
      slots(slotsFor(header.fps)) {
    for (Slot& slot : slots) {
        slot.pixels = std::make_unique<unsigned char[]>(slotBytes);
        slot.packets.reserve(64);
    }
    file = recorder.recordingFile();
    canBeLeft = file != nullptr;
    if (!canBeLeft) {
        file = std::make_shared<BorrowedRecorder>(recorder);
    }
    const MutexLock lock(mutex);
    currentStatus.recording = true;
}

RecordingSession::RecordingSession(rlxrw::RLXVideo& recorder, const rlxrw::RlxRecordingHeader& header, Clock& clock)
    : rlxRecorder(recorder), shared(std::make_shared<Shared>(recorder, header, clock)) {
    try {
        writer = std::thread([mine = shared] {
            (void)::pthread_setname_np(::pthread_self(), "rlx-record");
            mine->writeUntilStopped();
        });
    } catch (...) {
        shared->file->close();
        throw;
    }
}

unsigned char* RecordingSession::freeBuffer() const {
    return shared->slots[freeSlot].pixels.get();
}

std::size_t RecordingSession::bufferSize() const {
    return shared->slotBytes;
}

const rlxrw::RlxRecordingHeader& RecordingSession::header() const {
    return shared->recordingHeader;
}

void RecordingSession::offer(const Facts& facts, WhenFull whenFull) {
    Shared& all = *shared;
    Slot& slot = all.slots[freeSlot];
    rlxRecorder.takeWrittenPackets(slot.packets);
    const MutexLock lock(all.mutex);
    if (all.failed || all.stopping || !all.hasRoom(whenFull)) {
        // The packets stay with the buffer and go with the next frame.
        if (slot.packets.size() > kMaxPacketsOfAFrame) {
            slot.packets.clear();
        }
        all.drop();
        return;
    }
    slot.facts = facts;
    slot.lost_before = all.lostFrames;
    all.lostFrames = 0;
    if (all.queuedSlots++ == 0) {
        all.writingSince = all.systemClock.monotonicNanoseconds();
    }
    freeSlot = (freeSlot + 1) % all.slots.size();
    all.changed.notify_all();
}

uint64_t RecordingSession::Shared::frameCostNs() const {
    const uint64_t underWay = queuedSlots > 0 ? systemClock.monotonicNanoseconds() - writingSince : 0;
    return std::max(writeNs, underWay);
}

double RecordingSession::Shared::secondsSinceStart() const {
    return static_cast<double>(systemClock.monotonicNanoseconds() - started) / 1e9;
}

bool RecordingSession::Shared::isBehind() const {
    return queuedSlots > 1 && queuedSlots * frameCostNs() > kMaxBacklogNs;
}

template <class Done>
bool RecordingSession::Shared::waitFor(std::chrono::milliseconds limit, const Done& done) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (changed.wait_until(mutex, deadline) == std::cv_status::timeout) {
            return done();
        }
    }
    return true;
}

bool RecordingSession::Shared::hasRoom(WhenFull whenFull) {
    const auto hasRoom = [this]() ORU_REQUIRES(mutex) { return queuedSlots + 1 < slots.size(); };
    if (whenFull == WhenFull::DROP) {
        return hasRoom() && !isBehind();
    }
    (void)waitFor(kLongestWait, [&]() ORU_REQUIRES(mutex) { return hasRoom() || failed; });
    return hasRoom() && !failed;
}

void RecordingSession::Shared::drop() {
    ++lostFrames;
    ++currentStatus.frames_dropped;
    if (!failed) {
        sayThatItIsTooSlow();
    }
}

void RecordingSession::Shared::sayThatItIsTooSlow() {
    if (!saidSlow) {
        saidSlow = true;
        ORU_LOG(Warning,
                "{} Recording in compression mode {} takes {:.1f} ms a frame and cannot keep up: frames are left out "
                "evenly and counted",
                kTagKoru, static_cast<int>(recordingHeader.compression_mode), static_cast<double>(frameCostNs()) / 1e6);
    }
}

int RecordingSession::Shared::writeSlot(Slot& slot) const {
    rlxrw::RlxFrame frame;
    frame.pixels = slot.pixels.get();
    frame.size = slotBytes;
    frame.time = slot.facts.time;
    frame.metadata = slot.facts.metadata;
    frame.imu = slot.facts.has_imu ? &slot.facts.imu : nullptr;
    frame.packets = slot.packets.data();
    frame.packet_count = slot.packets.size();
    frame.lost_before = slot.lost_before;
    const int result =
        guarded<int>("Writing a frame", rlxrw::RLX_ENCODER_FAILED, [&] { return file->writeFrame(frame); });
    slot.packets.clear();
    return result;
}

void RecordingSession::Shared::noteWritten(int result) {
    const uint64_t nanoseconds = systemClock.monotonicNanoseconds() - writingSince;
    writeNs = writeNs == 0 ? nanoseconds : (writeNs * (kMeanWeight - 1) + nanoseconds) / kMeanWeight;
    if (result == rlxrw::RLX_WRITTEN) {
        ++currentStatus.frames_written;
    } else {
        failed = true;
        ++currentStatus.frames_dropped;
        currentStatus.last_result = FAILURE;
    }
    currentStatus.bytes_written = file->bytesWritten();
    firstQueued = (firstQueued + 1) % slots.size();
    --queuedSlots;
    changed.notify_all();
}

void RecordingSession::Shared::writeUntilStopped() {
    mutex.lock();
    while (!failed && !giveUp && (queuedSlots > 0 || !stopping)) {
        if (queuedSlots == 0) {
            changed.wait(mutex);
            continue;
        }
        Slot& slot = slots[firstQueued];
        writingSince = systemClock.monotonicNanoseconds();
        mutex.unlock();
        FailureReason reason(FailureReason::Messages::KEEP_BACK);
        const int result = writeSlot(slot);
        mutex.lock();
        if (result != rlxrw::RLX_WRITTEN) {
            failureReason = reason.text();
            reason.dropMessages();
        }
        if (!abandoned) {
            noteWritten(result);
        }
    }
    currentStatus.frames_dropped += queuedSlots;
    queuedSlots = 0;
    mutex.unlock();
    FailureReason ending(FailureReason::Messages::KEEP_BACK);
    guarded("Ending the file", [this] { file->close(); });
    mutex.lock();
    if (failed) {
        failureReason = ending.text().empty() ? failureReason : ending.text();
        ending.dropMessages();
    }
    if (!abandoned) {
        noteEnd();
    }
    ended = true;
    changed.notify_all();
    mutex.unlock();
}

void RecordingSession::Shared::noteEnd() {
    // On a full disk the last frames make room for the index.
    const FrameCounters counters = file->counters();
    if (counters.produced > 0 && counters.delivered < currentStatus.frames_written) {
        currentStatus.frames_dropped += currentStatus.frames_written - counters.delivered;
        currentStatus.frames_written = counters.delivered;
    }
    currentStatus.recording = false;
    currentStatus.seconds = secondsSinceStart();
}

/// Whether the thread has ended, or nothing it does concerns the session any more.
bool RecordingSession::Shared::end(std::chrono::milliseconds limit) {
    const MutexLock lock(mutex);
    stopping = true;
    changed.notify_all();
    (void)waitFor(limit, [this]() ORU_REQUIRES(mutex) { return queuedSlots == 0 || failed; });
    giveUp = true;
    changed.notify_all();
    if (!canBeLeft || waitFor(limit, [this]() ORU_REQUIRES(mutex) { return ended; })) {
        return true;
    }
    abandon();
    return false;
}

void RecordingSession::Shared::abandon() {
    abandoned = true;
    currentStatus.frames_dropped += queuedSlots;
    queuedSlots = 0;
    currentStatus.last_result = FAILURE;
    currentStatus.recording = false;
    currentStatus.seconds = secondsSinceStart();
}

void RecordingSession::stop(std::chrono::milliseconds limit) {
    if (!writer.joinable()) {
        return;
    }
    if (shared->end(limit)) {
        writer.join();
    } else {
        ORU_LOG(Warning, "{} The storage of a recording does not answer: the thread that writes it is left behind",
                kTagKoru);
        writer.detach();
    }
    rlxRecorder.close();
}

bool RecordingSession::hasFailed() const {
    const MutexLock lock(shared->mutex);
    return shared->failed;
}

std::string RecordingSession::failure() const {
    const MutexLock lock(shared->mutex);
    return shared->failureReason;
}

RecordingStatus RecordingSession::status() const {
    const MutexLock lock(shared->mutex);
    RecordingStatus status = shared->currentStatus;
    if (status.recording) {
        status.seconds = shared->secondsSinceStart();
    }
    return status;
}

}  // namespace oru::rlx
