#include "backends/stream/receiver/coded_queue.hpp"

#include <chrono>
#include <utility>

namespace oru::stream {

bool CodedQueue::push(CodedImage& image) {
    {
        const MutexLock lock(mutex);
        if (count == kCapacity) {
            return false;
        }
        std::swap(images[(first + count) % kCapacity], image);
        ++count;
    }
    pushed.notify_one();
    return true;
}

bool CodedQueue::pop(CodedImage& image, int milliseconds) {
    const MutexLock lock(mutex);
    inUse = false;
    const auto ready = [this]() ORU_REQUIRES(mutex) { return count > 0; };
    if (!pushed.wait_for(mutex, std::chrono::milliseconds(milliseconds), ready)) {
        return false;
    }
    std::swap(images[first], image);
    first = (first + 1) % kCapacity;
    --count;
    inUse = true;
    return true;
}

std::size_t CodedQueue::size() const {
    const MutexLock lock(mutex);
    return count;
}

bool CodedQueue::isDrained() const {
    const MutexLock lock(mutex);
    return count == 0 && !inUse;
}

}  // namespace oru::stream
