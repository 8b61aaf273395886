#pragma once

#include <cstddef>
#include <vector>

#include "oru_input/mcu/IMUPacket.hpp"
#include "utils/Mutex.hpp"

namespace oru::stream {

/// The samples that wait to be sent, in the order in which they came, at most kCapacity. Threads: any.
class SampleQueue {
public:
    static constexpr std::size_t kCapacity = 4096;

    /// False: full, the sample is dropped.
    [[nodiscard]] bool push(const IMUPacket& packet);
    /// Moves what waits to the end of `target`, as far as that stays within kCapacity.
    void drainTo(std::vector<IMUPacket>& target);

private:
    Mutex mutex;
    std::vector<IMUPacket> packets ORU_GUARDED_BY(mutex);
};

}  // namespace oru::stream
