#include "backends/stream/sender/frame_rate.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace oru::stream {
namespace {

constexpr double kSecondNs = 1e9;
constexpr uint64_t kMaxRatio = 16;

}  // namespace

uint64_t FrameDecimator::medianInterval() const {
    std::array<uint64_t, kIntervals> sorted = intervals;
    const std::size_t filled = std::min(count, kIntervals);
    const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(filled / 2);
    std::nth_element(sorted.begin(), middle, sorted.begin() + static_cast<std::ptrdiff_t>(filled));
    return *middle;
}

uint64_t FrameDecimator::ratio(uint64_t interval) const {
    constexpr double kTolerance = 0.12;
    const double exact = kSecondNs / (static_cast<double>(fps) * static_cast<double>(interval));
    const double whole = std::round(exact);
    const bool fits = std::abs(exact - whole) <= kTolerance * whole;
    return fits && whole >= 1.0 && whole <= kMaxRatio ? static_cast<uint64_t>(whole) : 1;
}

bool FrameDecimator::take(Timestamp time) {
    const bool first = last == 0 || time <= last;
    const uint64_t interval = first ? 0 : time - last;
    last = time;
    if (fps <= 0 || first) {
        sinceTaken = 0;
        return true;
    }
    intervals[count++ % kIntervals] = interval;
    const uint64_t usual = medianInterval();
    const uint64_t wanted = ratio(usual);
    sinceTaken += std::max<uint64_t>(1, (interval + usual / 2) / usual);
    if (sinceTaken < wanted) {
        return false;
    }
    // Keeps the rhythm: a frame that came late because others were lost does not delay the next one.
    sinceTaken %= wanted;
    return true;
}

LoadPacer::LoadPacer(int fps) : periodNs(kSecondNs / (fps > 0 ? fps : 30)) {}

bool LoadPacer::admit() {
    turn = (turn + 1) % admitInterval;
    return turn == 0;
}

bool LoadPacer::windowComplete() const {
    constexpr unsigned kMost = 20;
    constexpr unsigned kFewest = 2;
    constexpr double kLongestNs = 1.5 * kSecondNs;
    const double passedNs = std::max(totalNs, periodNs * admitInterval * samples);
    return samples >= kMost || (samples >= kFewest && passedNs >= kLongestNs);
}

bool LoadPacer::measured(uint64_t nanoseconds) {
    constexpr double kMost = 30.0;
    constexpr double kIdle = 0.75;
    totalNs += static_cast<double>(nanoseconds);
    ++samples;
    if (!windowComplete()) {
        return false;
    }
    const double periods = totalNs / samples / periodNs;
    const bool tooMuch = std::exchange(overflowed, false);
    totalNs = 0.0;
    samples = 0;
    if (tooMuch && periods > admitInterval) {
        admitInterval = static_cast<unsigned>(std::min(kMost, std::ceil(periods)));
        return !std::exchange(told, true);
    }
    admitInterval = std::min(admitInterval, std::max(1U, static_cast<unsigned>(std::ceil(periods / kIdle))));
    return false;
}

uint32_t BitrateControl::update(const Observation& seen) {
    constexpr double kTooMuchRepeated = 0.10;
    constexpr double kTooFarBehindMs = 250.0;
    constexpr unsigned kCalmRounds = 4;
    const uint64_t sent = seen.sent_packets - last.sent_packets;
    const uint64_t repeated = seen.repeated_packets - last.repeated_packets;
    const bool heldBack = seen.held_back_frames > last.held_back_frames;
    const bool congested = heldBack || seen.backlog_ms > kTooFarBehindMs ||
                           static_cast<double>(repeated) > kTooMuchRepeated * static_cast<double>(sent + 1);
    last = seen;
    if (congested) {
        calm = 0;
        currentRate = std::max(highestRate / 5, currentRate * 3 / 4);
    } else if (++calm >= kCalmRounds) {
        calm = 0;
        currentRate = std::min(highestRate, currentRate + std::max<uint32_t>(1, highestRate / 10));
    }
    return currentRate;
}

}  // namespace oru::stream
