#include "backends/stream/sender/RetransmitBuffer.hpp"

#include <algorithm>

namespace oru::stream {

void RetransmitBuffer::append(std::span<const IMUPacket> samples) {
    for (const IMUPacket& sample : samples) {
        ring[next++ % kCapacity] = sample;
    }
}

std::optional<uint64_t> RetransmitBuffer::after(Timestamp time) const {
    for (uint64_t number = end(); number > begin(); --number) {
        if (ring[(number - 1) % kCapacity].imu_timestamp == time) {
            return number;
        }
    }
    return std::nullopt;
}

std::span<const IMUPacket> RetransmitBuffer::run(uint64_t first, uint64_t last) const {
    const std::size_t at = first % kCapacity;
    const std::size_t count = std::min<std::size_t>(last - first, kCapacity - at);
    return {ring.data() + at, count};
}

}  // namespace oru::stream
