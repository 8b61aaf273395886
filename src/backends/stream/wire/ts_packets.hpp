#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "backends/stream/wire/ts_demuxer.hpp"

namespace oru::stream {

constexpr uint16_t kVideoPid = 0x100;
constexpr uint16_t kDataPid = 0x101;

using TransportPacket = std::array<uint8_t, TsDemuxer::kPacketBytes>;

/// The programme tables, one packet each (ISO/IEC 13818-1, 2.4.4): one programme with one video stream, which carries
/// the clock reference, and one data stream with the registration "KLVA" (SMPTE RP 217).
TransportPacket programAssociation();
TransportPacket programMap(VideoCodec codec);

/// One PES packet (ISO/IEC 13818-1, 2.4.3.6) and the marks that its first transport packet bears.
struct PesUnit {
    enum class Track : uint8_t { VIDEO, DATA };
    Track track = Track::DATA;
    std::span<const uint8_t> prefix;  ///< what the payload begins with, at most 16 bytes
    /// The rest of it; with the prefix at most kMaxDataPayload in the data track, which tells its length.
    std::span<const uint8_t> payload;
    uint64_t pts = 0;            ///< ticks of 90 kHz; in the video track the clock reference as well
    bool random_access = true;   ///< a decoder can begin here
    bool discontinuity = false;  ///< the packet before it in this track is unknown
};

constexpr std::size_t kMaxDataPayload = 65527;

/// Appends the transport packets of one PES packet to `target`, the first one with continuity counter `counter`.
/// @return the counter of the track's next transport packet
uint8_t appendPes(std::vector<uint8_t>& target, const PesUnit& unit, uint8_t counter);

/// A data packet for one receiver alone, put before a block that all receivers get.
struct DataPacket {
    std::span<const uint8_t> payload;  ///< at most kMaxDataPayload bytes
    uint64_t pts = 0;
    uint8_t next_counter = 0;  ///< continuity counter of the data track's first transport packet in what follows
};

/// Appends the transport packets of such a packet to `target`. The first one is marked as a discontinuity, because what
/// came before it is unknown; the last one leads on to `next_counter`.
void writeDataPackets(std::vector<uint8_t>& target, const DataPacket& packet);

}  // namespace oru::stream
