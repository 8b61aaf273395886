#pragma once

#include <algorithm>
#include <ctime>
#include <vector>

namespace oru::bench {

inline double milliseconds(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) * 1e-6;
}

/// Times of one contender. One thread is timed by its own CPU time, which other programs disturb least; several by the
/// wall clock.
class Samples {
public:
    explicit Samples(int threads) : clock(threads == 1 ? CLOCK_THREAD_CPUTIME_ID : CLOCK_MONOTONIC) {}

    template <class Work>
    void time(Work&& work) {
        const double start = milliseconds(clock);
        work();
        times.push_back(milliseconds(clock) - start);
    }
    [[nodiscard]] double median() const {
        std::vector<double> sorted = times;
        std::nth_element(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2), sorted.end());
        return sorted[sorted.size() / 2];
    }

private:
    clockid_t clock;
    std::vector<double> times;
};

}  // namespace oru::bench
