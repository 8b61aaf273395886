#include "backends/stream/sender/RetransmitBuffer.hpp"

#include <algorithm>

#include "backends/stream/wire/records.hpp"
#include "backends/stream/wire/ts_packets.hpp"

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

RetransmitBuffer::Packets RetransmitBuffer::packetsBefore(const StreamBlock& block, uint64_t first) {
    FrameRecord header;
    header.session = block.session;
    header.frame_id = block.frame_before;
    const auto missed = run(first, firstOf(block));
    record.clear();
    packets.clear();
    const std::size_t written = writeFrameRecord(record, header, missed.data(), missed.size());
    writeDataPackets(packets, {record, block.pts, block.data_counter});
    return {packets, first + written};
}

std::span<const IMUPacket> RetransmitBuffer::run(uint64_t first, uint64_t last) const {
    const std::size_t at = first % kCapacity;
    const std::size_t count = std::min<std::size_t>(last - first, kCapacity - at);
    return {ring.data() + at, count};
}

}  // namespace oru::stream
