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

/// How many transport packets a PES packet takes.
std::size_t packetCount(const PesUnit& unit);

/// Appends the transport packets of one PES packet to `target`, the first one with continuity counter `counter`.
/// @return the counter of the track's next transport packet
uint8_t appendPes(std::vector<uint8_t>& target, const PesUnit& unit, uint8_t counter);

}  // namespace oru::stream
