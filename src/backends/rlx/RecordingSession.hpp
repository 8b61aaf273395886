#pragma once

#include <condition_variable>
#include <memory>
#include <thread>
#include <vector>

#include "collaborators/RLXVideo.hpp"
#include "utils/Clock.hpp"
#include "utils/Mutex.hpp"

namespace oru::rlx {

/// One recording from start to end: a fixed set of picture buffers and a thread that writes. The grabbing thread fills
/// the free buffer and offers it; it never waits unless it asks to. Every offered frame is written or counted as
/// dropped. Threads: freeBuffer, offer and stop from one thread at a time; status from any.
class RecordingSession {
public:
    /// `recorder` has been created with `header` and outlives the session, which closes it.
    RecordingSession(rlxrw::RLXVideo& recorder, const rlxrw::RlxRecordingHeader& header, Clock& clock);
    ~RecordingSession() { stop(); }
    RecordingSession(const RecordingSession&) = delete;
    RecordingSession& operator=(const RecordingSession&) = delete;

    struct Facts {
        Timestamp time = 0;
        rlxrw::rlxSampleMetadata metadata{};
        bool has_imu = false;
        IMUPacket imu;
    };
    enum class WhenFull {
        DROP,  ///< also when the writer is behind by more than its share of a second
        WAIT,  ///< for the writer, in bounded time
    };

    /// Where the next picture belongs; never null, changes with every frame that is taken.
    [[nodiscard]] unsigned char* freeBuffer() const { return slots_[free_].pixels.get(); }
    [[nodiscard]] std::size_t bufferSize() const { return buffer_size_; }
    /// Takes the picture in freeBuffer() and the packets that the recorder was given since the last one taken.
    void offer(const Facts& facts, WhenFull when_full);
    /// Writes what was taken, in bounded time, and closes the file.
    void stop();

    /// The file cannot grow or the encoder failed; the file is closed already.
    [[nodiscard]] bool hasFailed() const;
    /// All fields but `paused`.
    [[nodiscard]] RecordingStatus status() const;
    [[nodiscard]] const rlxrw::RlxRecordingHeader& header() const { return header_; }

private:
    struct Slot {
        std::unique_ptr<unsigned char[]> pixels;
        Facts facts;
        std::vector<IMUPacket> packets;
        uint32_t lost_before = 0;
    };

    void writeUntilStopped();
    [[nodiscard]] int writeSlot(Slot& slot);
    void noteWritten(int result, uint64_t nanoseconds) ORU_REQUIRES(mutex_);
    [[nodiscard]] bool hasRoom(WhenFull when_full) ORU_REQUIRES(mutex_);
    [[nodiscard]] bool isBehind() const ORU_REQUIRES(mutex_);
    /// What a frame costs the writer, as measured, or more when it is at one for longer.
    [[nodiscard]] uint64_t frameCostNs() const ORU_REQUIRES(mutex_);
    void drop() ORU_REQUIRES(mutex_);
    void sayThatItIsTooSlow() ORU_REQUIRES(mutex_);

    rlxrw::RLXVideo& recorder_;
    const rlxrw::RlxRecordingHeader header_;
    Clock& clock_;
    const std::size_t buffer_size_;
    const uint64_t started_;
    std::vector<Slot> slots_;  // a ring: queued ones from first_, then the free one
    std::size_t free_ = 0;
    Timestamp first_time_ = 0;

    mutable Mutex mutex_;
    std::condition_variable_any changed_;
    std::size_t first_ ORU_GUARDED_BY(mutex_) = 0;
    std::size_t queued_ ORU_GUARDED_BY(mutex_) = 0;
    bool stop_ ORU_GUARDED_BY(mutex_) = false;
    bool give_up_ ORU_GUARDED_BY(mutex_) = false;
    bool said_slow_ ORU_GUARDED_BY(mutex_) = false;
    bool failed_ ORU_GUARDED_BY(mutex_) = false;
    uint64_t write_ns_ ORU_GUARDED_BY(mutex_) = 0;  // running mean of one frame
    uint64_t writing_since_ ORU_GUARDED_BY(mutex_) = 0;
    uint32_t lost_ ORU_GUARDED_BY(mutex_) = 0;  // since the last frame taken
    RecordingStatus status_ ORU_GUARDED_BY(mutex_);
    std::thread writer_;
};

}  // namespace oru::rlx
