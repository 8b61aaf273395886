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
    const auto ready = [this]() ORU_REQUIRES(mutex) { return count > 0; };
    if (!pushed.wait_for(mutex, std::chrono::milliseconds(milliseconds), ready)) {
        return false;
    }
    std::swap(images[first], image);
    first = (first + 1) % kCapacity;
    --count;
    return true;
}

std::size_t CodedQueue::size() const {
    const MutexLock lock(mutex);
    return count;
}

}  // namespace oru::stream
