#include "sample_queue.hpp"

#include <algorithm>

namespace oru::stream {

bool SampleQueue::push(const IMUPacket& packet) {
    MutexLock lock(mutex_);
    if (packets_.size() >= kCapacity) {
        return false;
    }
    packets_.push_back(packet);
    return true;
}

void SampleQueue::drainTo(std::vector<IMUPacket>& target) {
    MutexLock lock(mutex_);
    const std::size_t room = kCapacity - std::min(kCapacity, target.size());
    const auto end = packets_.begin() + static_cast<std::ptrdiff_t>(std::min(room, packets_.size()));
    target.insert(target.end(), packets_.begin(), end);
    packets_.erase(packets_.begin(), end);
}

void SampleQueue::clear() {
    MutexLock lock(mutex_);
    packets_.clear();
}

}  // namespace oru::stream
