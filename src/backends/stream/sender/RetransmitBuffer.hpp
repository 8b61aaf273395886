#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "oru/types.hpp"
#include "oru_input/mcu/IMUPacket.hpp"

namespace oru::stream {

/// The samples that were sent last, or set aside while nobody listened, for receivers that did not get them: at most
/// kCapacity. They are numbered from 0 on in their order. Its memory is made once. Threads: one.
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
    /// Samples from number `first` on, before `last`: as many as lie side by side, so ask again for the rest. Both lie
    /// within begin() and end(). Valid until the next append().
    [[nodiscard]] std::span<const IMUPacket> run(uint64_t first, uint64_t last) const;

private:
    std::vector<IMUPacket> ring;
    uint64_t next = 0;
};

}  // namespace oru::stream
