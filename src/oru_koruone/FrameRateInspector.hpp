#pragma once

#include <cstdint>
#include <deque>

#include "oru/image.hpp"
#include "utils/Mutex.hpp"

namespace oru {

/// Measures the rate of the source and the frames that it dropped.
/// Threads: the history under its mutex; the rest belongs to the grabbing thread, and other threads may read the
/// current timestamp.
class FrameRateInspector {
public:
    FrameRateInspector();
    ~FrameRateInspector();
    FrameRateInspector(const FrameRateInspector&) = delete;
    FrameRateInspector& operator=(const FrameRateInspector&) = delete;

    /// Takes the current timestamp into account. A source that goes backwards gives no interval.
    void update();

    Timestamp lastTimestamp = 0;
    Timestamp currentTimestamp = 0;  ///< of the current image
    uint32_t droppedFrames = 0;      ///< saturates
    std::deque<float> fpsHistory ORU_GUARDED_BY(mutex);
    int32_t expectedFps = 0;
    float expectedPeriodMs = 0.0F;
    int32_t historySize = 0;
    Mutex mutex;
};

/// Measures the rate at which the application grabs. Threads: the grabbing thread; others may read currentFps.
class ActualFrameRateInspector {
public:
    /// A grab succeeded at `now` (nanoseconds). A clock that goes backwards gives no interval: the
    /// rate is then that of the intervals before it.
    void update(Timestamp now);

    float currentFps = 0.0F;
    Timestamp lastGrabTime = 0;
    std::deque<uint64_t> intervalsMs;
    int32_t maxIntervals = 10;
};

}  // namespace oru
