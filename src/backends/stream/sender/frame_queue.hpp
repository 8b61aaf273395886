#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>

#include "coding/av_pointers.hpp"
#include "collaborators/RLXVideo.hpp"
#include "oru/types.hpp"
#include "utils/Mutex.hpp"

namespace oru::stream {

/// One frame on its way to the encoder.
struct OutgoingFrame {
    coding::AvPtr<AVFrame> image;  ///< 4:2:0
    bool filled = false;           ///< false: nobody listened, so the image was not converted
    uint64_t id = 0;
    Timestamp timestamp = 0;
    rlxrw::rlxSampleMetadata metadata{};
};

/// Hands frames from the grabbing to the encoding thread through a few buffers that are made once.
/// Threads: one that reserves and commits, one that takes and releases, any that waits for room.
class FrameQueue {
public:
    /// One being filled, one being encoded, the others waiting.
    static constexpr std::size_t kSlots = 6;

    [[nodiscard]] bool allocate(uint32_t width, uint32_t height);
    /// A buffer to fill, or null: every one is in use. It stays the caller's until commit.
    [[nodiscard]] OutgoingFrame* reserve();
    void commit();
    /// The oldest frame, or null after the wait. It stays the caller's until release.
    [[nodiscard]] OutgoingFrame* take(int milliseconds);
    void release();
    /// Waits, at most this long, until reserve() would succeed.
    void waitForRoom(int milliseconds);

private:
    std::array<OutgoingFrame, kSlots> frames;
    Mutex mutex;
    std::condition_variable_any changed;
    std::size_t first ORU_GUARDED_BY(mutex) = 0;  ///< the oldest one waiting or being encoded
    std::size_t count ORU_GUARDED_BY(mutex) = 0;  ///< waiting or being encoded
};

}  // namespace oru::stream
