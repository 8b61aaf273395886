#include "imu_store.hpp"

#include <algorithm>

namespace oru::stream {
namespace {

constexpr uint64_t kBackwardNs = 1000000000;

bool earlier(const IMUPacket& packet, uint64_t time) {
    return packet.imu_timestamp < time;
}

}  // namespace

void ImuStore::add(const std::vector<IMUPacket>& packets) {
    MutexLock lock(mutex_);
    for (const IMUPacket& packet : packets) {
        if (any_ && packet.imu_timestamp + kBackwardNs < newest_.imu_timestamp) {
            dropped_ += packets_.size();
            packets_.clear();
        }
        const auto later = [](uint64_t time, const IMUPacket& other) { return time < other.imu_timestamp; };
        packets_.insert(std::upper_bound(packets_.begin(), packets_.end(), packet.imu_timestamp, later), packet);
        newest_ = packet;
        any_ = true;
        if (packets_.size() > kCapacity) {
            packets_.pop_front();
            ++dropped_;
        }
    }
}

std::vector<IMUPacket> ImuStore::takeBefore(Timestamp time) {
    MutexLock lock(mutex_);
    const auto end = std::lower_bound(packets_.begin(), packets_.end(), time, earlier);
    std::vector<IMUPacket> taken(packets_.begin(), end);
    packets_.erase(packets_.begin(), end);
    return taken;
}

bool ImuStore::newest(IMUPacket& packet) const {
    MutexLock lock(mutex_);
    if (any_) {
        packet = newest_;
    }
    return any_;
}

uint64_t ImuStore::dropped() const {
    MutexLock lock(mutex_);
    return dropped_;
}

void ImuStore::clear() {
    MutexLock lock(mutex_);
    dropped_ += packets_.size();
    packets_.clear();
    any_ = false;
}

}  // namespace oru::stream
