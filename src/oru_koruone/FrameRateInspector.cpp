#include "oru_koruone/FrameRateInspector.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "oru_koruone/relaxed.hpp"

namespace oru {
namespace {

constexpr int32_t kDefaultFps = 60;
constexpr int32_t kHistoryLength = 10;
constexpr uint64_t kNsPerMs = 1'000'000;
constexpr Timestamp kEarliestGrabNs = 999'999;

/// Appends, dropping the oldest beyond `limit`; moves in place, because a deque that is pushed and popped allocates.
template <class T>
void appendBounded(std::deque<T>& history, int32_t limit, T value) {
    if (history.size() < static_cast<std::size_t>(limit)) {
        history.push_back(value);
        return;
    }
    std::move(history.begin() + 1, history.end(), history.begin());
    history.back() = value;
}

/// Whole milliseconds between two times, each cut to milliseconds first; 0 when the second is not later.
uint64_t intervalMs(Timestamp earlier, Timestamp later) {
    const uint64_t from = earlier / kNsPerMs;
    const uint64_t to = later / kNsPerMs;
    return to > from ? to - from : 0;
}

uint32_t addSaturated(uint32_t count, uint64_t more) {
    constexpr uint64_t kMost = std::numeric_limits<uint32_t>::max();
    return static_cast<uint32_t>(std::min(kMost, count + std::min(kMost, more)));
}

}  // namespace

FrameRateInspector::FrameRateInspector() {
    historySize = kHistoryLength;
    const MutexLock lock(mutex);
    expectedFps = kDefaultFps;
    expectedPeriodMs = 1.0F / static_cast<float>(kDefaultFps) * 1000.0F;
    fpsHistory.clear();
    fpsHistory.push_back(static_cast<float>(kDefaultFps));
    droppedFrames = 0;
}

FrameRateInspector::~FrameRateInspector() {
    const MutexLock lock(mutex);
    fpsHistory.clear();
}

void FrameRateInspector::update() {
    const Timestamp current = currentTimestamp;
    if (current == 0) {
        return;
    }
    const Timestamp last = lastTimestamp;
    lastTimestamp = current;
    if (last == 0 || expectedFps <= 0) {
        return;
    }
    const auto interval = static_cast<double>(intervalMs(last, current));
    if (interval <= 0.0) {
        return;
    }
    {
        const MutexLock lock(mutex);
        appendBounded(fpsHistory, historySize, static_cast<float>(1000.0 / interval));
    }
    const double periods = std::round(interval / static_cast<double>(expectedPeriodMs));
    if (periods >= 2.0) {
        droppedFrames = addSaturated(droppedFrames, static_cast<uint64_t>(periods) - 1);
    }
}

void ActualFrameRateInspector::update(Timestamp now) {
    storeRelaxed(currentFps, 0.0F);
    const Timestamp last = lastGrabTime;
    lastGrabTime = now;
    if (last > kEarliestGrabNs && now >= last) {
        appendBounded(intervalsMs, maxIntervals, intervalMs(last, now));
    }
    if (intervalsMs.empty()) {
        return;
    }
    const auto sum = std::accumulate(intervalsMs.begin(), intervalsMs.end(), uint64_t{0});
    const float mean = static_cast<float>(sum) / static_cast<float>(intervalsMs.size());
    storeRelaxed(currentFps, mean > 0.0F ? 1000.0F / mean : std::numeric_limits<float>::infinity());
}

}  // namespace oru
