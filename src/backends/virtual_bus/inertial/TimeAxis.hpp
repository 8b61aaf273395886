#pragma once

#include <atomic>
#include <cstdint>

#include "oru/image.hpp"
#include "utils/Clock.hpp"

namespace oru::virtual_bus {

/// The clock of one opened camera: elapsed nanoseconds since its start, and what a time stamp says at that moment.
/// Image and inertial samples share it. Threads: any.
class TimeAxis {
public:
    explicit TimeAxis(Clock& clock)
        : systemClock(clock),
          start(clock.monotonicNanoseconds()),
          offset(static_cast<int64_t>(clock.systemNanoseconds() - clock.monotonicNanoseconds())) {}

    [[nodiscard]] uint64_t elapsed() const { return systemClock.monotonicNanoseconds() - start; }

    /// Wall-clock time of a moment, nanoseconds since the Unix epoch.
    [[nodiscard]] Timestamp stamp(uint64_t elapsed) const {
        return start + elapsed + static_cast<uint64_t>(offset.load(std::memory_order_acquire));
    }

    /// Moves all later stamps, as a change of the clock does.
    void step(int64_t nanoseconds) {
        stepOffset += nanoseconds;
        offset.fetch_add(nanoseconds, std::memory_order_acq_rel);
    }

    /// Adopts a change of the system clock of more than 50 ms; smaller ones are drift, not worth a jump.
    /// Called, as step(), by the capture thread only.
    void followSystemClock() {
        const auto wanted =
            static_cast<int64_t>(systemClock.systemNanoseconds() - systemClock.monotonicNanoseconds()) + stepOffset;
        const int64_t change = wanted - offset.load(std::memory_order_acquire);
        if (change > kTolerance || change < -kTolerance) {
            offset.store(wanted, std::memory_order_release);
        }
    }

private:
    static constexpr int64_t kTolerance = 50'000'000;

    Clock& systemClock;
    uint64_t start;
    std::atomic<int64_t> offset;
    int64_t stepOffset = 0;
};

}  // namespace oru::virtual_bus
