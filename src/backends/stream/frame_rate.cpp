#include "frame_rate.hpp"

#include <algorithm>
#include <cmath>

namespace oru::stream {
namespace {

constexpr double kSecondNs = 1e9;
constexpr uint64_t kMaxRatio = 16;

}  // namespace

uint64_t FrameDecimator::medianInterval() const {
    std::array<uint64_t, kIntervals> sorted = intervals_;
    const std::size_t filled = std::min(count_, kIntervals);
    const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(filled / 2);
    std::nth_element(sorted.begin(), middle, sorted.begin() + static_cast<std::ptrdiff_t>(filled));
    return *middle;
}

uint64_t FrameDecimator::ratio(uint64_t interval) const {
    constexpr double kTolerance = 0.12;
    const double exact = kSecondNs / (static_cast<double>(fps_) * static_cast<double>(interval));
    const double whole = std::round(exact);
    const bool fits = std::abs(exact - whole) <= kTolerance * whole;
    return fits && whole >= 1.0 && whole <= kMaxRatio ? static_cast<uint64_t>(whole) : 1;
}

bool FrameDecimator::take(Timestamp time) {
    const bool first = last_ == 0 || time <= last_;
    const uint64_t interval = first ? 0 : time - last_;
    last_ = time;
    if (fps_ <= 0 || first) {
        sinceTaken_ = 0;
        return true;
    }
    intervals_[count_++ % kIntervals] = interval;
    const uint64_t usual = medianInterval();
    const uint64_t wanted = ratio(usual);
    sinceTaken_ += std::max<uint64_t>(1, (interval + usual / 2) / usual);
    if (sinceTaken_ < wanted) {
        return false;
    }
    // Keeps the rhythm: a frame that came late because others were lost does not delay the next one.
    sinceTaken_ %= wanted;
    return true;
}

LoadPacer::LoadPacer(int fps) : periodNs_(kSecondNs / (fps > 0 ? fps : 30)) {}

bool LoadPacer::admit() {
    turn_ = (turn_ + 1) % every_;
    return turn_ == 0;
}

bool LoadPacer::measured(uint64_t nanoseconds) {
    constexpr double kWeight = 0.08;
    constexpr unsigned kFewest = 30;
    constexpr double kBusy = 1.0;
    constexpr double kIdle = 0.75;
    constexpr unsigned kMost = 30;
    const auto value = static_cast<double>(nanoseconds);
    averageNs_ = samples_ == 0 ? value : averageNs_ + kWeight * (value - averageNs_);
    if (++samples_ < kFewest) {
        return false;
    }
    if (averageNs_ > kBusy * periodNs_ * every_ && every_ < kMost) {
        ++every_;
        samples_ = 1;
        return every_ == 2;
    }
    if (every_ > 1 && averageNs_ < kIdle * periodNs_ * (every_ - 1)) {
        --every_;
        samples_ = 1;
    }
    return false;
}

uint32_t BitrateControl::update(const Observation& seen) {
    constexpr double kTooMuchRepeated = 0.10;
    constexpr double kTooFarBehindMs = 250.0;
    constexpr unsigned kCalmRounds = 4;
    const uint64_t sent = seen.sent_packets - last_.sent_packets;
    const uint64_t repeated = seen.repeated_packets - last_.repeated_packets;
    const bool heldBack = seen.held_back_frames > last_.held_back_frames;
    const bool congested = heldBack || seen.backlog_ms > kTooFarBehindMs ||
                           static_cast<double>(repeated) > kTooMuchRepeated * static_cast<double>(sent + 1);
    last_ = seen;
    if (congested) {
        calm_ = 0;
        current_ = std::max(highest_ / 5, current_ * 3 / 4);
    } else if (++calm_ >= kCalmRounds) {
        calm_ = 0;
        current_ = std::min(highest_, current_ + std::max<uint32_t>(1, highest_ / 10));
    }
    return current_;
}

}  // namespace oru::stream
