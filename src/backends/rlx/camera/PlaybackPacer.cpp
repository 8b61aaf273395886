#include "backends/rlx/camera/PlaybackPacer.hpp"

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
    anchored = true;
    anchorClock = now;
    anchorTime = time;
}

bool PlaybackPacer::waitForNext(rlxrw::RLXVideo& reader) {
    const int position = reader.position();
    const Timestamp time = reader.frameTime(position);
    if (!anchored || position != expectedPosition) {
        anchored = false;
        expectedPosition = position;
        return true;
    }
    if (!isContinuous(lastTime, time)) {
        if (time > lastTime) {
            sleepUntil(dueAt(lastTime) + kLongestGapNs);
        }
        anchored = false;
        return true;
    }
    sleepUntil(dueAt(time));
    return skipOvertaken(reader);
}

bool PlaybackPacer::skipOvertaken(rlxrw::RLXVideo& reader) {
    const uint64_t now = systemClock.monotonicNanoseconds();
    for (int position = reader.position(); position + 1 < reader.frameCount(); ++position) {
        const Timestamp time = reader.frameTime(position);
        const Timestamp next = reader.frameTime(position + 1);
        if (!isContinuous(time, next) || next == time || dueAt(next) > now) {
            break;
        }
        reader.skipFrame();
        expectedPosition = reader.position();
        if (expectedPosition == position) {
            return false;
        }
        lastTime = time;
    }
    return true;
}

void PlaybackPacer::noteTaken(int position, Timestamp time) {
    if (!anchored) {
        anchor(systemClock.monotonicNanoseconds(), time);
    }
    expectedPosition = position;
    lastTime = time;
}

void PlaybackPacer::sleepUntil(uint64_t due) {
    const uint64_t now = systemClock.monotonicNanoseconds();
    if (due <= now) {
        return;
    }
    const uint64_t wait = std::min(due - now, kLongestGapNs);
    timespec left{static_cast<time_t>(wait / kNanosecondsPerSecond), static_cast<long>(wait % kNanosecondsPerSecond)};
    while (systemClock.nanosleep(left, &left) != 0 && errno == EINTR) {
    }
}

}  // namespace oru::rlx
