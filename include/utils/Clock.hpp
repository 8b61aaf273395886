#pragma once

#include <cstdint>
#include <ctime>
#include <memory>

namespace oru {

/// The system's clocks, so that tests need not wait. Threads: any.
class Clock {
public:
    virtual ~Clock() = default;

    /// Wall clock, nanoseconds since the Unix epoch.
    virtual uint64_t systemNanoseconds() = 0;
    /// Never goes backwards; for durations and deadlines.
    virtual uint64_t monotonicNanoseconds() = 0;
    /// As nanosleep(2): 0, or -1 with what remains in `rest` when a signal cut it short.
    virtual int nanosleep(const timespec& duration, timespec* rest) = 0;
};

/// The real clocks of this machine.
std::unique_ptr<Clock> makeSystemClock();

}  // namespace oru
