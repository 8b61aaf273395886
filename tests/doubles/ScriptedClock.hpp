#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "utils/Clock.hpp"

namespace oru::doubles {

/// Time passes only in nanosleep, and where a test moves it. Threads: any, but one at a time sleeps.
class ScriptedClock final : public Clock {
public:
    uint64_t systemNanoseconds() override { return now + systemAhead; }
    uint64_t monotonicNanoseconds() override { return now; }
    int nanosleep(const timespec& duration, timespec* rest) override {
        const auto asked =
            static_cast<uint64_t>(duration.tv_sec) * 1'000'000'000U + static_cast<uint64_t>(duration.tv_nsec);
        sleeps.push_back(asked);
        const uint64_t slept = interruptions > 0 ? asked / 2 : asked;
        now += slept;
        if (rest != nullptr) {
            *rest = {0, static_cast<long>(asked - slept)};
        }
        return interruptions > 0 ? (--interruptions, -1) : 0;
    }

    std::atomic<uint64_t> now{1'700'000'000'000'000'000U};  ///< monotonic
    uint64_t systemAhead = 0;                               ///< of the monotonic time
    int interruptions = 0;
    std::vector<uint64_t> sleeps;
};

}  // namespace oru::doubles
