#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "collaborators/RLXVideo.hpp"
#include "frame_ledger.hpp"
#include "oru/types.hpp"
#include "utils/Clock.hpp"
#include "utils/Mutex.hpp"

namespace oru::stream {

/// A decoded frame without its pixels.
struct FrameFacts {
    uint64_t id = 0;
    Timestamp timestamp = 0;
    bool has_metadata = false;
    rlxrw::rlxSampleMetadata metadata{};
};

/// The decoded pictures between the decoding thread and the application, a few at most. An application that keeps up
/// gets every one of them, in order, also when the network delivers several at once; one that does not gets the newest,
/// and the others count as overwritten.
/// Threads: one writer, one reader.
class PictureRing {
public:
    /// One being written, one being read, the others waiting.
    static constexpr std::size_t kSlots = 6;
    static constexpr std::size_t kMaxWaiting = kSlots - 2;

    PictureRing(Clock& clock, FrameLedger& ledger) : clock_(clock), ledger_(ledger) {}

    /// Makes room for pictures of this size. Before the threads use the ring.
    void resize(std::size_t bytes);
    /// How long a picture may wait before the reader counts as behind.
    void setPatience(uint64_t nanoseconds);

    /// A place for the next picture. When all are taken, a reader that is about to come is waited for, as long as a
    /// picture may wait; then the oldest one is given up.
    [[nodiscard]] unsigned char* beginWrite();
    /// The picture begun last is complete.
    void publish(const FrameFacts& facts);
    /// Waits for a picture and copies it to `image`.
    [[nodiscard]] std::optional<FrameFacts> read(unsigned char* image, uint64_t wait_ns);

private:
    static constexpr std::size_t kNone = kSlots;

    struct Slot {
        std::vector<unsigned char> pixels;
        FrameFacts facts;
        uint64_t published_ns = 0;
    };

    [[nodiscard]] std::size_t popOldest() ORU_REQUIRES(mutex_);
    void giveUpAllButNewest() ORU_REQUIRES(mutex_);
    [[nodiscard]] bool isFree(std::size_t slot) const ORU_REQUIRES(mutex_);

    Clock& clock_;
    FrameLedger& ledger_;
    mutable Mutex mutex_;
    std::condition_variable_any published_;
    std::condition_variable_any taken_;
    std::array<Slot, kSlots> slots_;  // the writer owns slot writing_, the reader slot reading_, the mutex the others
    std::array<std::size_t, kMaxWaiting> waiting_ ORU_GUARDED_BY(mutex_){};  ///< oldest first
    std::size_t count_ ORU_GUARDED_BY(mutex_) = 0;
    std::size_t writing_ ORU_GUARDED_BY(mutex_) = kNone;
    std::size_t reading_ ORU_GUARDED_BY(mutex_) = kNone;
    uint64_t readNs_ ORU_GUARDED_BY(mutex_) = 0;  ///< when the reader last had a picture
    uint64_t patienceNs_ ORU_GUARDED_BY(mutex_) = 0;
};

}  // namespace oru::stream
