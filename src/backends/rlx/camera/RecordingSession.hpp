#pragma once

#include <condition_variable>
#include <memory>
#include <thread>
#include <vector>

#include "collaborators/RLXVideo.hpp"
#include "utils/Clock.hpp"
#include "utils/Mutex.hpp"

namespace oru::rlx {

/// One recording from start to end: a fixed set of image buffers and a thread that writes. The grabbing thread fills
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

    /// Where the next image belongs; never null, changes with every frame that is taken.
    [[nodiscard]] unsigned char* freeBuffer() const { return slots[freeSlot].pixels.get(); }
    [[nodiscard]] std::size_t bufferSize() const { return slotBytes; }
    /// Takes the image in freeBuffer() and the packets that the recorder was given since the last one taken.
    void offer(const Facts& facts, WhenFull whenFull);
    /// Writes what was taken, in bounded time, and closes the file.
    void stop();

    /// The file cannot grow or the encoder failed; the file is closed already.
    [[nodiscard]] bool hasFailed() const;
    /// All fields but `paused`.
    [[nodiscard]] RecordingStatus status() const;
    [[nodiscard]] const rlxrw::RlxRecordingHeader& header() const { return recordingHeader; }

private:
    struct Slot {
        std::unique_ptr<unsigned char[]> pixels;
        Facts facts;
        std::vector<IMUPacket> packets;
        uint32_t lost_before = 0;
    };

    void writeUntilStopped();
    [[nodiscard]] int writeSlot(Slot& slot);
    void noteWritten(int result, uint64_t nanoseconds) ORU_REQUIRES(mutex);
    [[nodiscard]] bool hasRoom(WhenFull whenFull) ORU_REQUIRES(mutex);
    [[nodiscard]] bool isBehind() const ORU_REQUIRES(mutex);
    /// What a frame costs the writer, as measured, or more when it is at one for longer.
    [[nodiscard]] uint64_t frameCostNs() const ORU_REQUIRES(mutex);
    void drop() ORU_REQUIRES(mutex);
    void sayThatItIsTooSlow() ORU_REQUIRES(mutex);

    rlxrw::RLXVideo& rlxRecorder;
    const rlxrw::RlxRecordingHeader recordingHeader;
    Clock& systemClock;
    const std::size_t slotBytes;
    const uint64_t started;
    std::vector<Slot> slots;  // a ring: queued ones from firstQueued, then the free one
    std::size_t freeSlot = 0;
    Timestamp firstTime = 0;

    mutable Mutex mutex;
    std::condition_variable_any changed;
    std::size_t firstQueued ORU_GUARDED_BY(mutex) = 0;
    std::size_t queuedSlots ORU_GUARDED_BY(mutex) = 0;
    bool stopping ORU_GUARDED_BY(mutex) = false;
    bool giveUp ORU_GUARDED_BY(mutex) = false;
    bool saidSlow ORU_GUARDED_BY(mutex) = false;
    bool failed ORU_GUARDED_BY(mutex) = false;
    uint64_t writeNs ORU_GUARDED_BY(mutex) = 0;  // running mean of one frame
    uint64_t writingSince ORU_GUARDED_BY(mutex) = 0;
    uint32_t lostFrames ORU_GUARDED_BY(mutex) = 0;  // since the last frame taken
    RecordingStatus currentStatus ORU_GUARDED_BY(mutex);
    std::thread writer;
};

}  // namespace oru::rlx
