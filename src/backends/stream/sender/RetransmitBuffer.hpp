#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "backends/stream/sender/StreamBlock.hpp"
#include "oru/types.hpp"
#include "oru_input/mcu/IMUPacket.hpp"

namespace oru::stream {

/// The samples that were sent last, or set aside while nobody listened, for receivers that did not get them: at most
/// kCapacity. They are numbered from 0 on in their order. Its memory is made once, that of packets when the first are
/// asked for. Threads: one at a time.
class RetransmitBuffer {
public:
    /// Ten seconds of the fastest camera, well beyond the four after which a receiver that takes nothing is dropped.
    static constexpr std::size_t kCapacity = 4096;

    RetransmitBuffer() : ring(kCapacity) {}

    void append(std::span<const IMUPacket> samples);
    /// The oldest one that is still there; end() when there is none.
    [[nodiscard]] uint64_t begin() const { return next < kCapacity ? 0 : next - kCapacity; }
    /// The number of the next one.
    [[nodiscard]] uint64_t end() const { return next; }
    /// The number of the one after the newest sample of this IMU time, which may be end(); nothing: it is not there.
    [[nodiscard]] std::optional<uint64_t> after(Timestamp time) const;
    /// The number of the first sample of a block whose samples were appended last.
    [[nodiscard]] uint64_t firstOf(const StreamBlock& block) const { return next - block.samples.size(); }
    struct Packets {
        std::span<const uint8_t> bytes;  ///< whole transport packets, valid until the next call
        uint64_t end;                    ///< the number past the last sample in them
    };
    /// Samples from number `first` on, as many as go into one record without a frame, to be sent before such a block or
    /// behind its tables.
    [[nodiscard]] Packets packetsBefore(const StreamBlock& block, uint64_t first);
    /// Samples from number `first` on, before `last`: as many as lie side by side, so ask again for the rest. Both lie
    /// within begin() and end(). Valid until the next append().
    [[nodiscard]] std::span<const IMUPacket> run(uint64_t first, uint64_t last) const;

private:
    std::vector<IMUPacket> ring;
    uint64_t next = 0;
    std::vector<uint8_t> record;
    std::vector<uint8_t> packets;
};

}  // namespace oru::stream
