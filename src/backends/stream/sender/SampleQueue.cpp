#include "backends/stream/sender/SampleQueue.hpp"

#include <algorithm>

namespace oru::stream {

bool SampleQueue::push(const IMUPacket& packet) {
    const MutexLock lock(mutex);
    if (packets.size() >= kCapacity) {
        return false;
    }
    packets.push_back(packet);
    return true;
}

void SampleQueue::drainTo(std::vector<IMUPacket>& target) {
    const MutexLock lock(mutex);
    const std::size_t room = kCapacity - std::min(kCapacity, target.size());
    const auto end = packets.begin() + static_cast<std::ptrdiff_t>(std::min(room, packets.size()));
    target.insert(target.end(), packets.begin(), end);
    packets.erase(packets.begin(), end);
}

}  // namespace oru::stream
