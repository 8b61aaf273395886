#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "backends/stream/wire/ts_packets.hpp"

namespace oru::stream {

/// Writes one video stream and one KLV data stream into a transport stream in memory, block by block: the counterpart
/// of TsDemuxer. It allocates while blocks grow, and then no more. Threads: one at a time.
class TsWriter {
public:
    /// Starts the stream anew.
    void open(VideoCodec videoCodec);
    /// Starts a block whose packets all bear `ticks` of 90 kHz, which never decrease. It begins with the programme
    /// tables when they are wanted or were written 0.2 s ago.
    void begin(uint64_t ticks, bool tablesWanted);
    /// One access unit in Annex B form; a missing access unit delimiter is put before it.
    void writeVideo(std::span<const uint8_t> accessUnit, bool keyFrame);
    /// At most kMaxDataPayload bytes.
    void writeData(std::span<const uint8_t> payload);

    /// The block so far: whole transport packets, valid until more is written.
    [[nodiscard]] std::span<const uint8_t> block() const { return bytes; }
    /// The programme tables that the block begins with.
    [[nodiscard]] std::size_t tableBytes() const { return tables; }
    [[nodiscard]] uint64_t pts() const { return now; }
    /// The continuity counter of the data track's first transport packet in the block.
    [[nodiscard]] uint8_t firstDataCounter() const { return blockDataCounter; }

private:
    void writeTables();

    VideoCodec codec = VideoCodec::NONE;
    TransportPacket association{};
    TransportPacket map{};
    std::vector<uint8_t> bytes;
    std::size_t tables = 0;
    uint64_t now = 0;
    std::optional<uint64_t> tablesWritten;
    uint8_t tableCounter = 0;
    uint8_t videoCounter = 0;
    uint8_t dataCounter = 0;
    uint8_t blockDataCounter = 0;
};

}  // namespace oru::stream
