#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace oru::stream {

/// A data packet for one receiver alone, put before a block that all receivers get.
struct DataPacket {
    std::span<const uint8_t> payload;  ///< at most 65527 bytes
    uint64_t pts = 0;
    uint8_t next_counter = 0;  ///< continuity counter of the data track's first transport packet in what follows
};

/// Appends the transport packets of one PES packet of TsWriter's data track (ISO/IEC 13818-1) to `target`. The first
/// one is marked as a discontinuity, because what came before it is unknown; the last one leads on to `next_counter`.
void writeDataPackets(std::vector<uint8_t>& target, const DataPacket& packet);

/// The continuity counter of the data track's first transport packet; 0 when there is none.
uint8_t firstDataCounter(std::span<const uint8_t> transportPackets);

/// Length of the transport packets before the first one of a TsWriter's tracks.
std::size_t tableBytes(std::span<const uint8_t> transportPackets);

}  // namespace oru::stream
