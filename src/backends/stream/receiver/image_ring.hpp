#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "backends/stream/wire/FrameLedger.hpp"
#include "collaborators/RLXVideo.hpp"
#include "oru/types.hpp"
#include "utils/Clock.hpp"
#include "utils/Mutex.hpp"

namespace oru::stream {

/// A decoded frame without its pixels.
struct FrameInfo {
    uint64_t id = 0;
    Timestamp timestamp = 0;
    bool has_metadata = false;
    rlxrw::rlxSampleMetadata metadata{};
};

/// The decoded images between the decoding thread and the application, a few at most. An application that keeps up
/// gets every one of them, in order, also when the network delivers several at once; one that does not gets the newest,
/// and the others count as overwritten.
/// Threads: one writer, one reader.
class ImageRing {
public:
    /// One being written, one being read, the others waiting.
    static constexpr std::size_t kSlots = 6;
    static constexpr std::size_t kMaxWaiting = kSlots - 2;

    ImageRing(Clock& systemClock, FrameLedger& frameLedger) : clock(systemClock), ledger(frameLedger) {}

    /// Makes room for images of this size. Before the threads use the ring.
    void resize(std::size_t bytes);
    /// How long an image may wait before the reader counts as behind.
    void setPatience(uint64_t nanoseconds);

    /// A place for the next image. When all are taken, a reader that is about to come is waited for, as long as a
    /// image may wait; then the oldest one is given up.
    [[nodiscard]] unsigned char* beginWrite();
    /// The image begun last is complete.
    void publish(const FrameInfo& info);
    /// Waits for an image and copies it to `image`.
    [[nodiscard]] std::optional<FrameInfo> read(unsigned char* image, uint64_t waitNs);
    /// No image waits to be read. Threads: any.
    [[nodiscard]] bool empty() const;
    /// When the last image was complete, or resize() was called since; 0 before both. Threads: any.
    [[nodiscard]] uint64_t newestNs() const;

private:
    static constexpr std::size_t kNone = kSlots;

    struct Slot {
        std::vector<unsigned char> pixels;
        FrameInfo info;
        uint64_t published_ns = 0;
    };

    [[nodiscard]] std::size_t popOldest() ORU_REQUIRES(mutex);
    void giveUpAllButNewest() ORU_REQUIRES(mutex);
    [[nodiscard]] bool isFree(std::size_t slot) const ORU_REQUIRES(mutex);

    Clock& clock;
    FrameLedger& ledger;
    mutable Mutex mutex;
    std::condition_variable_any published;
    std::condition_variable_any taken;
    std::array<Slot, kSlots> slots;  // the writer owns slot writing, the reader slot reading, the mutex the others
    std::array<std::size_t, kMaxWaiting> waiting ORU_GUARDED_BY(mutex){};  ///< oldest first
    std::size_t count ORU_GUARDED_BY(mutex) = 0;
    std::size_t writing ORU_GUARDED_BY(mutex) = kNone;
    std::size_t reading ORU_GUARDED_BY(mutex) = kNone;
    uint64_t readNs ORU_GUARDED_BY(mutex) = 0;  ///< when the reader last had an image
    uint64_t publishedNs ORU_GUARDED_BY(mutex) = 0;
    uint64_t patienceNs ORU_GUARDED_BY(mutex) = 0;
};

}  // namespace oru::stream
