#include "backends/stream/receiver/ImuStore.hpp"

#include <algorithm>

namespace oru::stream {
namespace {

constexpr uint64_t kBackwardNs = 1'000'000'000;

bool earlier(const IMUPacket& packet, uint64_t time) {
    return packet.imu_timestamp < time;
}

}  // namespace

void ImuStore::add(const std::vector<IMUPacket>& packets) {
    const MutexLock lock(mutex);
    for (const IMUPacket& packet : packets) {
        if (any && packet.imu_timestamp < latest.imu_timestamp &&
            latest.imu_timestamp - packet.imu_timestamp > kBackwardNs) {
            droppedPackets += stored.size();
            stored.clear();
        }
        const auto later = [](uint64_t time, const IMUPacket& other) { return time < other.imu_timestamp; };
        stored.insert(std::upper_bound(stored.begin(), stored.end(), packet.imu_timestamp, later), packet);
        latest = packet;
        any = true;
        if (stored.size() > kCapacity) {
            stored.pop_front();
            ++droppedPackets;
        }
    }
}

std::vector<IMUPacket> ImuStore::takeBefore(Timestamp time) {
    const MutexLock lock(mutex);
    const auto end = std::lower_bound(stored.begin(), stored.end(), time, earlier);
    std::vector<IMUPacket> taken(stored.begin(), end);
    stored.erase(stored.begin(), end);
    return taken;
}

bool ImuStore::newest(IMUPacket& packet) const {
    const MutexLock lock(mutex);
    if (any) {
        packet = latest;
    }
    return any;
}

uint64_t ImuStore::dropped() const {
    const MutexLock lock(mutex);
    return droppedPackets;
}

void ImuStore::clear() {
    const MutexLock lock(mutex);
    droppedPackets += stored.size();
    stored.clear();
    any = false;
}

}  // namespace oru::stream
