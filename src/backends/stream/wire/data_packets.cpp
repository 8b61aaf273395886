#include "backends/stream/wire/data_packets.hpp"

#include <algorithm>
#include <array>

#include "backends/stream/wire/TsWriter.hpp"

namespace oru::stream {
namespace {

constexpr std::size_t kHeader = 4;
constexpr std::size_t kRoom = TsDemuxer::kPacketBytes - kHeader;
constexpr std::size_t kFirstRoom = kRoom - 2;
constexpr std::size_t kPesHeader = 14;
constexpr uint8_t kDiscontinuity = 0x80;

std::array<uint8_t, kPesHeader> pesHeader(uint64_t pts, std::size_t payload) {
    constexpr uint8_t kPrivateStream = 0xBD;
    constexpr uint8_t kMarker = 0x80;
    constexpr uint8_t kPtsOnly = 0x80;
    constexpr uint8_t kPtsBytes = 5;
    const std::size_t length = kPesHeader - 6 + payload;
    const auto byte = [](uint64_t value) { return static_cast<uint8_t>(value); };
    return {0,
            0,
            1,
            kPrivateStream,
            byte(length >> 8),
            byte(length),
            kMarker,
            kPtsOnly,
            kPtsBytes,
            byte(0x21 | (pts >> 30 & 7) << 1),
            byte(pts >> 22),
            byte(1 | (pts >> 15 & 0x7F) << 1),
            byte(pts >> 7),
            byte(1 | (pts & 0x7F) << 1)};
}

/// One transport packet with its adaptation field, as long as `size` bytes of payload leave room for.
void writeHeader(std::vector<uint8_t>& target, uint8_t counter, bool first, std::size_t size) {
    constexpr uint8_t kSync = 0x47;
    constexpr uint8_t kStart = 0x40;
    constexpr uint8_t kPayload = 0x10;
    constexpr uint8_t kAdaptation = 0x20;
    constexpr uint8_t kStuffing = 0xFF;
    const bool adapted = size < kRoom;
    target.push_back(kSync);
    target.push_back(static_cast<uint8_t>((first ? kStart : 0) | TsWriter::kDataPid >> 8));
    target.push_back(static_cast<uint8_t>(TsWriter::kDataPid & 0xFF));
    target.push_back(static_cast<uint8_t>(kPayload | (adapted ? kAdaptation : 0) | counter));
    if (!adapted) {
        return;
    }
    const std::size_t length = kRoom - size - 1;
    target.push_back(static_cast<uint8_t>(length));
    if (length > 0) {
        target.push_back(first ? kDiscontinuity : uint8_t{0});
        target.insert(target.end(), length - 1, kStuffing);
    }
}

/// The first transport packet of such a track; the end when there is none.
template <class Wanted>
const uint8_t* find(std::span<const uint8_t> transportPackets, Wanted&& wanted) {
    const uint8_t* at = transportPackets.data();
    const uint8_t* end = at + transportPackets.size();
    while (at != end && !wanted(static_cast<uint16_t>((at[1] & 0x1F) << 8 | at[2]))) {
        at += TsDemuxer::kPacketBytes;
    }
    return at;
}

}  // namespace

void writeDataPackets(std::vector<uint8_t>& target, const DataPacket& packet) {
    const auto header = pesHeader(packet.pts, packet.payload.size());
    const std::size_t total = header.size() + packet.payload.size();
    const std::size_t count = total <= kFirstRoom ? 1 : 1 + (total - kFirstRoom + kRoom - 1) / kRoom;
    const uint8_t* next = packet.payload.data();
    std::size_t left = packet.payload.size();
    for (std::size_t i = 0; i < count; ++i) {
        const bool first = i == 0;
        const std::size_t before = first ? header.size() : 0;
        const std::size_t size = std::min(before + left, first ? kFirstRoom : kRoom);
        const std::size_t counter = (packet.next_counter + 16 - (count - i) % 16) % 16;
        writeHeader(target, static_cast<uint8_t>(counter), first, size);
        target.insert(target.end(), header.begin(), header.begin() + static_cast<std::ptrdiff_t>(before));
        target.insert(target.end(), next, next + (size - before));
        next += size - before;
        left -= size - before;
    }
}

uint8_t firstDataCounter(std::span<const uint8_t> transportPackets) {
    const uint8_t* found = find(transportPackets, [](uint16_t pid) { return pid == TsWriter::kDataPid; });
    return found == transportPackets.data() + transportPackets.size() ? uint8_t{0} : found[3] & 0x0F;
}

std::size_t tableBytes(std::span<const uint8_t> transportPackets) {
    const auto isTrack = [](uint16_t pid) { return pid == TsWriter::kVideoPid || pid == TsWriter::kDataPid; };
    return static_cast<std::size_t>(find(transportPackets, isTrack) - transportPackets.data());
}

}  // namespace oru::stream
