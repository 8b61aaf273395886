#include "backends/rlx/PlaybackPacer.hpp"

#include <algorithm>
#include <cerrno>

namespace oru::rlx {

namespace {

constexpr uint64_t kLongestGapNs = 1'000'000'000;
constexpr uint64_t kNanosecondsPerSecond = 1'000'000'000;

bool isContinuous(Timestamp from, Timestamp to) {
    return to >= from && to - from <= kLongestGapNs;
}

}  // namespace

void PlaybackPacer::anchor(uint64_t now, Timestamp time) {
    anchored_ = true;
    anchor_clock_ = now;
    anchor_time_ = time;
    last_time_ = time;
}

bool PlaybackPacer::waitForNext(rlxrw::RLXVideo& reader) {
    const int position = reader.position();
    const Timestamp time = reader.frameTime(position);
    if (!anchored_ || position != expected_position_) {
        anchor(clock_.monotonicNanoseconds(), time);
        expected_position_ = position;
        return true;
    }
    if (!isContinuous(last_time_, time)) {
        if (time > last_time_) {
            sleepUntil(dueAt(last_time_) + kLongestGapNs);
        }
        anchor(clock_.monotonicNanoseconds(), time);
        return true;
    }
    sleepUntil(dueAt(time));
    return skipOvertaken(reader);
}

bool PlaybackPacer::skipOvertaken(rlxrw::RLXVideo& reader) {
    const uint64_t now = clock_.monotonicNanoseconds();
    for (int position = reader.position(); position + 1 < reader.frameCount(); ++position) {
        const Timestamp time = reader.frameTime(position);
        const Timestamp next = reader.frameTime(position + 1);
        if (!isContinuous(time, next) || next == time || dueAt(next) > now) {
            break;
        }
        reader.skipFrame();
        expected_position_ = reader.position();
        if (expected_position_ == position) {
            return false;
        }
        last_time_ = time;
    }
    return true;
}

void PlaybackPacer::noteTaken(int position, Timestamp time) {
    expected_position_ = position;
    last_time_ = time;
}

void PlaybackPacer::sleepUntil(uint64_t due) {
    const uint64_t now = clock_.monotonicNanoseconds();
    if (due <= now) {
        return;
    }
    const uint64_t wait = std::min(due - now, kLongestGapNs);
    timespec left{static_cast<time_t>(wait / kNanosecondsPerSecond), static_cast<long>(wait % kNanosecondsPerSecond)};
    while (clock_.nanosleep(left, &left) != 0 && errno == EINTR) {
    }
}

}  // namespace oru::rlx
