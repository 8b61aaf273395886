#include "koruone/runs/PacketClock.hpp"

#include <algorithm>
#include <cmath>

namespace koruone {
namespace {

constexpr double kGapFactor = 1.5;
constexpr uint64_t kSettling = 16;    // intervals before the usual one is known
constexpr uint64_t kRefreshing = 64;  // packets between two looks at the median

}  // namespace

PacketClock::Step PacketClock::add(uint64_t timestampNs) {
    if (received == 0) {
        received = 1;
        firstNs = lastNs = timestampNs;
        return FIRST;
    }
    if (timestampNs == lastNs) {
        return REPEATED;
    }
    ++received;
    if (timestampNs < lastNs) {
        ++outOfOrder;
        lastNs = timestampNs;
        return BACKWARDS;
    }
    const uint64_t interval = timestampNs - lastNs;
    lastNs = timestampNs;
    largestNs = std::max(largestNs, interval);
    intervals.record(std::chrono::nanoseconds(interval));
    if (intervals.count() == kSettling || received % kRefreshing == 0) {
        usualUs = intervals.percentileUs(50.0);
    }
    const bool settled = intervals.count() >= kSettling;
    return settled && static_cast<double>(interval) / 1000.0 > kGapFactor * usualUs ? GAP : NEXT;
}

PacketClock::Summary PacketClock::summary() const {
    Summary result;
    result.packets = received;
    result.out_of_order = outOfOrder;
    if (intervals.count() == 0) {
        return result;
    }
    const double median = intervals.percentileUs(50.0);
    result.seconds = lastNs > firstNs ? static_cast<double>(lastNs - firstNs) / 1e9 : 0.0;
    result.rate = result.seconds > 0.0 ? static_cast<double>(received - 1) / result.seconds : 0.0;
    result.median_ms = median / 1000.0;
    result.largest_ms = static_cast<double>(largestNs) / 1e6;
    intervals.forEach([&](double intervalUs, uint64_t count) {
        if (intervalUs > kGapFactor * median) {
            result.gaps += count;
            result.missing += count * static_cast<uint64_t>(std::max(std::lround(intervalUs / median) - 1, 1L));
        }
    });
    return result;
}

}  // namespace koruone
