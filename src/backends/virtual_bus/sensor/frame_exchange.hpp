#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <vector>

#include "oru/types.hpp"
#include "oru_input/mcu/IMUPacket.hpp"
#include "utils/Mutex.hpp"

namespace oru::virtual_bus {

struct Frame {
    std::vector<unsigned char> pixels;
    Timestamp time = 0;
    IMUPacket imu;
    bool has_imu = false;
    FrameInfo info;  // lost_before is filled in when the frame is held
};

enum class Loss : int32_t { SENSOR_GAP, DAMAGED, DECODE_FAILED };

/// Hands the newest frame from the capture thread to the taker over three buffers, so that neither waits for the
/// other, and keeps the account: produced = delivered + lost.
/// Threads: writeBuffer() and publish() belong to the capture thread, latch() to taken() to one taker; reset() and
/// clear() are called while there is no capture thread; the rest any.
class FrameExchange {
public:
    /// Drops what is there and zeroes the counters.
    void reset(std::size_t bytes);

    /// The buffer to draw into; unshared until publish().
    [[nodiscard]] Frame& writeBuffer() { return frames[writingIndex]; }
    /// Offers the written frame as the newest; one that nobody took is counted as overwritten.
    void publish();
    void countLost(Loss cause);

    /// Whether a frame waits that has not been taken.
    [[nodiscard]] bool fresh();
    /// Returns at a fresh frame, at wake(), or after the given time, and then false.
    bool waitForFresh(int milliseconds);
    void wake();

    /// Makes the newest frame the held one; without a fresh frame the held one stays.
    void latch();
    /// The held frame, null before the first.
    [[nodiscard]] Frame* held();
    /// The held frame has been delivered; counted once.
    void taken();

    /// Forgets every frame and gives their memory back; one that was not taken is counted as overwritten.
    void clear();

    [[nodiscard]] FrameCounters counters() const;

private:
    mutable Mutex mutex;
    std::condition_variable_any changed;
    std::array<Frame, 3> frames;
    std::size_t writingIndex = 0;  // changed by publish() alone
    std::size_t readyIndex ORU_GUARDED_BY(mutex) = 1;
    std::size_t heldIndex ORU_GUARDED_BY(mutex) = 2;
    bool hasFresh ORU_GUARDED_BY(mutex) = false;
    bool holding ORU_GUARDED_BY(mutex) = false;
    bool untaken ORU_GUARDED_BY(mutex) = false;
    uint64_t nextToTake ORU_GUARDED_BY(mutex) = 0;  // the number after the frame taken last
    uint64_t wakeCount ORU_GUARDED_BY(mutex) = 0;
    FrameCounters account ORU_GUARDED_BY(mutex);
};

}  // namespace oru::virtual_bus
