#include "packet_clock.hpp"

#include <algorithm>
#include <cmath>

namespace koruone {
namespace {

constexpr double kGapFactor = 1.5;
constexpr uint64_t kSettling = 16;    // intervals before the usual one is known
constexpr uint64_t kRefreshing = 64;  // packets between two looks at the median

}  // namespace

PacketClock::Step PacketClock::add(uint64_t timestampNs) {
    if (packets_ == 0) {
        packets_ = 1;
        first_ = last_ = timestampNs;
        return FIRST;
    }
    if (timestampNs == last_) {
        return REPEATED;
    }
    ++packets_;
    if (timestampNs < last_) {
        ++outOfOrder_;
        last_ = timestampNs;
        return BACKWARDS;
    }
    const uint64_t interval = timestampNs - last_;
    last_ = timestampNs;
    largestNs_ = std::max(largestNs_, interval);
    intervals_.record(std::chrono::nanoseconds(interval));
    if (intervals_.count() == kSettling || packets_ % kRefreshing == 0) {
        usualUs_ = intervals_.percentileUs(50.0);
    }
    const bool settled = intervals_.count() >= kSettling;
    return settled && static_cast<double>(interval) / 1000.0 > kGapFactor * usualUs_ ? GAP : NEXT;
}

PacketClock::Summary PacketClock::summary() const {
    Summary result;
    result.packets = packets_;
    result.out_of_order = outOfOrder_;
    if (intervals_.count() == 0) {
        return result;
    }
    const double usualUs = intervals_.percentileUs(50.0);
    result.seconds = last_ > first_ ? static_cast<double>(last_ - first_) / 1e9 : 0.0;
    result.rate = result.seconds > 0.0 ? static_cast<double>(packets_ - 1) / result.seconds : 0.0;
    result.median_ms = usualUs / 1000.0;
    result.largest_ms = static_cast<double>(largestNs_) / 1e6;
    intervals_.forEach([&](double intervalUs, uint64_t count) {
        if (intervalUs > kGapFactor * usualUs) {
            result.gaps += count;
            result.missing += count * static_cast<uint64_t>(std::max(std::lround(intervalUs / usualUs) - 1, 1L));
        }
    });
    return result;
}

}  // namespace koruone
