#include "backends/stream/sender/frame_queue.hpp"

#include <chrono>

#include "coding/image_format.hpp"

namespace oru::stream {

bool FrameQueue::allocate(uint32_t width, uint32_t height) {
    const MutexLock lock(mutex);
    first = 0;
    count = 0;
    for (OutgoingFrame& frame : frames) {
        // H.264 and H.265 take the same format.
        frame.image = coding::makeImage(coding::VideoCodec::H264, width, height);
        if (!frame.image) {
            return false;
        }
    }
    return true;
}

OutgoingFrame* FrameQueue::reserve() {
    const MutexLock lock(mutex);
    if (count + 1 >= kSlots) {
        return nullptr;
    }
    OutgoingFrame& frame = frames[(first + count) % kSlots];
    // An encoder may still hold a reference to an image that it took long ago.
    return coding::isWritable(*frame.image) ? &frame : nullptr;
}

void FrameQueue::commit() {
    {
        const MutexLock lock(mutex);
        ++count;
    }
    changed.notify_all();
}

OutgoingFrame* FrameQueue::take(int milliseconds) {
    const MutexLock lock(mutex);
    const auto ready = [this]() ORU_REQUIRES(mutex) { return count > 0; };
    return changed.wait_for(mutex, std::chrono::milliseconds(milliseconds), ready) ? &frames[first] : nullptr;
}

void FrameQueue::release() {
    {
        const MutexLock lock(mutex);
        first = (first + 1) % kSlots;
        --count;
    }
    changed.notify_all();
}

void FrameQueue::waitForRoom(int milliseconds) {
    const MutexLock lock(mutex);
    const auto room = [this]() ORU_REQUIRES(mutex) { return count + 1 < kSlots; };
    changed.wait_for(mutex, std::chrono::milliseconds(milliseconds), room);
}

}  // namespace oru::stream
