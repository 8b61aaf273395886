#include <time.h>

#include "utils/Clock.hpp"

namespace oru {
namespace {

constexpr uint64_t kNanosecondsPerSecond = 1'000'000'000;

uint64_t nanosecondsOf(clockid_t clock) {
    timespec time = {};
    ::clock_gettime(clock, &time);
    return static_cast<uint64_t>(time.tv_sec) * kNanosecondsPerSecond + static_cast<uint64_t>(time.tv_nsec);
}

class SystemClock final : public Clock {
public:
    uint64_t systemNanoseconds() override { return nanosecondsOf(CLOCK_REALTIME); }
    uint64_t monotonicNanoseconds() override { return nanosecondsOf(CLOCK_MONOTONIC); }
    int nanosleep(const timespec& duration, timespec* rest) override { return ::nanosleep(&duration, rest); }
};

}  // namespace

std::unique_ptr<Clock> makeSystemClock() {
    return std::make_unique<SystemClock>();
}

}  // namespace oru
