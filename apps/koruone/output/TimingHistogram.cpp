#include "koruone/output/TimingHistogram.hpp"

#include <algorithm>
#include <cmath>

namespace koruone {

void TimingHistogram::record(std::chrono::nanoseconds duration) {
    const auto ns = static_cast<uint64_t>(std::max<int64_t>(duration.count(), 0));
    const std::size_t index = slot(ns);
    ++perClass[index];
    latest[index] = ns;
    ++samples;
}

double TimingHistogram::percentileUs(double percent) const {
    const auto rank = std::max(1.0, std::ceil(percent / 100.0 * static_cast<double>(samples)));
    uint64_t seen = 0;
    for (std::size_t i = 0; i < perClass.size(); ++i) {
        seen += perClass[i];
        if (static_cast<double>(seen) >= rank) {
            return static_cast<double>(latest[i]) / 1000.0;
        }
    }
    return 0.0;
}

// Durations below 128 ns have a class each; above, the exponent selects a row and the next seven bits a class in it.
std::size_t TimingHistogram::slot(uint64_t ns) {
    if (ns < kClasses) {
        return ns;
    }
    const auto shift = static_cast<unsigned>(std::bit_width(ns)) - kClassBits - 1;
    return (shift + 1) * kClasses + ((ns >> shift) - kClasses);
}

}  // namespace koruone
