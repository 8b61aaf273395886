#include "backends/virtual_bus/sensor/frame_exchange.hpp"

#include <chrono>
#include <utility>

namespace oru::virtual_bus {

void FrameExchange::reset(std::size_t bytes) {
    const MutexLock lock(mutex);
    for (Frame& frame : frames) {
        frame = Frame{};
        frame.pixels.resize(bytes);
    }
    hasFresh = false;
    holding = false;
    untaken = false;
    account = {};
    nextToTake = 0;
}

void FrameExchange::publish() {
    {
        const MutexLock lock(mutex);
        if (hasFresh) {
            ++account.overwritten;
        }
        std::swap(writingIndex, readyIndex);
        hasFresh = true;
    }
    changed.notify_all();
}

void FrameExchange::countLost(Loss cause) {
    const MutexLock lock(mutex);
    switch (cause) {
        case Loss::SENSOR_GAP:
            ++account.sensor_gap;
            break;
        case Loss::DAMAGED:
            ++account.damaged;
            break;
        case Loss::DECODE_FAILED:
            ++account.decode_failed;
            break;
    }
}

bool FrameExchange::fresh() {
    const MutexLock lock(mutex);
    return hasFresh;
}

bool FrameExchange::waitForFresh(int milliseconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    const MutexLock lock(mutex);
    const uint64_t wakes = wakeCount;
    while (!hasFresh && wakeCount == wakes) {
        if (changed.wait_until(mutex, deadline) == std::cv_status::timeout) {
            return hasFresh;
        }
    }
    return true;
}

void FrameExchange::wake() {
    {
        const MutexLock lock(mutex);
        ++wakeCount;
    }
    changed.notify_all();
}

void FrameExchange::latch() {
    const MutexLock lock(mutex);
    if (!hasFresh) {
        return;
    }
    if (untaken) {
        ++account.overwritten;
    }
    std::swap(readyIndex, heldIndex);
    hasFresh = false;
    holding = true;
    untaken = true;
    FrameInfo& info = frames[heldIndex].info;
    info.lost_before = info.number - nextToTake;
}

Frame* FrameExchange::held() {
    const MutexLock lock(mutex);
    return holding ? &frames[heldIndex] : nullptr;
}

void FrameExchange::taken() {
    const MutexLock lock(mutex);
    if (untaken) {
        ++account.delivered;
        untaken = false;
        nextToTake = frames[heldIndex].info.number + 1;
    }
}

void FrameExchange::clear() {
    const MutexLock lock(mutex);
    account.overwritten += (hasFresh ? 1U : 0U) + (untaken ? 1U : 0U);
    for (Frame& frame : frames) {
        frame = Frame{};
    }
    hasFresh = false;
    holding = false;
    untaken = false;
}

FrameCounters FrameExchange::counters() const {
    const MutexLock lock(mutex);
    FrameCounters result = account;
    result.produced = result.delivered + result.lost();
    return result;
}

}  // namespace oru::virtual_bus
