#include "frame_mailbox.hpp"

#include <chrono>

#include "video_encoder.hpp"

namespace oru::stream {

bool FrameMailbox::allocate(uint32_t width, uint32_t height) {
    MutexLock lock(mutex_);
    first_ = 0;
    count_ = 0;
    for (OutgoingFrame& frame : frames_) {
        frame.picture = makePicture(width, height);
        if (!frame.picture) {
            return false;
        }
    }
    return true;
}

OutgoingFrame* FrameMailbox::reserve() {
    MutexLock lock(mutex_);
    if (count_ + 1 >= kSlots) {
        return nullptr;
    }
    OutgoingFrame& frame = frames_[(first_ + count_) % kSlots];
    // An encoder may still hold a reference to a picture that it took long ago.
    return av_frame_is_writable(frame.picture.get()) != 0 ? &frame : nullptr;
}

void FrameMailbox::commit() {
    {
        MutexLock lock(mutex_);
        ++count_;
    }
    changed_.notify_all();
}

OutgoingFrame* FrameMailbox::take(int milliseconds) {
    MutexLock lock(mutex_);
    const auto ready = [this]() ORU_NO_THREAD_SAFETY_ANALYSIS { return count_ > 0; };
    return changed_.wait_for(mutex_, std::chrono::milliseconds(milliseconds), ready) ? &frames_[first_] : nullptr;
}

void FrameMailbox::release() {
    {
        MutexLock lock(mutex_);
        first_ = (first_ + 1) % kSlots;
        --count_;
    }
    changed_.notify_all();
}

void FrameMailbox::waitForRoom(int milliseconds) {
    MutexLock lock(mutex_);
    const auto room = [this]() ORU_NO_THREAD_SAFETY_ANALYSIS { return count_ + 1 < kSlots; };
    changed_.wait_for(mutex_, std::chrono::milliseconds(milliseconds), room);
}

}  // namespace oru::stream
