#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "oru/types.hpp"
#include "oru_input/mcu/IMUPacket.hpp"
#include "utils/Mutex.hpp"

namespace oru::stream {

/// The received samples that no frame has taken yet, in time order, at most kCapacity: beyond that the oldest go.
/// Threads: any.
class ImuStore {
public:
    static constexpr std::size_t kCapacity = 8192;

    /// Adds samples. When time has gone back by more than a second (the sender restarted or a file began again), what
    /// is left of the time before is dropped.
    void add(const std::vector<IMUPacket>& packets);
    /// Removes and returns the samples earlier than `time`, in time order.
    std::vector<IMUPacket> takeBefore(Timestamp time);
    /// The sample that arrived last; false before the first.
    [[nodiscard]] bool newest(IMUPacket& packet) const;
    [[nodiscard]] uint64_t dropped() const;
    void clear();

private:
    mutable Mutex mutex;
    std::deque<IMUPacket> stored ORU_GUARDED_BY(mutex);
    IMUPacket latest ORU_GUARDED_BY(mutex);
    bool any ORU_GUARDED_BY(mutex) = false;
    uint64_t droppedPackets ORU_GUARDED_BY(mutex) = 0;
};

}  // namespace oru::stream
