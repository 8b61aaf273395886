#include "coded_queue.hpp"

#include <chrono>
#include <utility>

namespace oru::stream {

bool CodedQueue::push(CodedPicture& picture) {
    {
        MutexLock lock(mutex_);
        if (count_ == kCapacity) {
            return false;
        }
        std::swap(pictures_[(first_ + count_) % kCapacity], picture);
        ++count_;
    }
    pushed_.notify_one();
    return true;
}

bool CodedQueue::pop(CodedPicture& picture, int milliseconds) {
    MutexLock lock(mutex_);
    const auto ready = [this]() ORU_NO_THREAD_SAFETY_ANALYSIS { return count_ > 0; };
    if (!pushed_.wait_for(mutex_, std::chrono::milliseconds(milliseconds), ready)) {
        return false;
    }
    std::swap(pictures_[first_], picture);
    first_ = (first_ + 1) % kCapacity;
    --count_;
    return true;
}

std::size_t CodedQueue::size() const {
    MutexLock lock(mutex_);
    return count_;
}

}  // namespace oru::stream
