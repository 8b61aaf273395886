#include "backends/virtual_bus/frame_exchange.hpp"

#include <chrono>
#include <utility>

namespace oru::virtual_bus {

void FrameExchange::reset(std::size_t bytes) {
    const MutexLock lock(mutex_);
    for (Frame& frame : frames_) {
        frame = Frame{};
        frame.pixels.resize(bytes);
    }
    fresh_ = false;
    holding_ = false;
    untaken_ = false;
    counters_ = {};
}

void FrameExchange::publish() {
    {
        const MutexLock lock(mutex_);
        if (fresh_) {
            ++counters_.overwritten;
        }
        std::swap(writing_, ready_);
        fresh_ = true;
    }
    changed_.notify_all();
}

void FrameExchange::countLost(Loss cause) {
    const MutexLock lock(mutex_);
    switch (cause) {
        case Loss::sensor_gap:
            ++counters_.sensor_gap;
            break;
        case Loss::damaged:
            ++counters_.damaged;
            break;
        case Loss::decode_failed:
            ++counters_.decode_failed;
            break;
    }
}

bool FrameExchange::fresh() {
    const MutexLock lock(mutex_);
    return fresh_;
}

void FrameExchange::waitForFresh(int milliseconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    const MutexLock lock(mutex_);
    const uint64_t wakes = wakes_;
    while (!fresh_ && wakes_ == wakes) {
        if (changed_.wait_until(mutex_, deadline) == std::cv_status::timeout) {
            return;
        }
    }
}

void FrameExchange::wake() {
    {
        const MutexLock lock(mutex_);
        ++wakes_;
    }
    changed_.notify_all();
}

void FrameExchange::latch() {
    const MutexLock lock(mutex_);
    if (!fresh_) {
        return;
    }
    if (untaken_) {
        ++counters_.overwritten;
    }
    std::swap(ready_, held_);
    fresh_ = false;
    holding_ = true;
    untaken_ = true;
}

Frame* FrameExchange::held() {
    const MutexLock lock(mutex_);
    return holding_ ? &frames_[held_] : nullptr;
}

void FrameExchange::taken() {
    const MutexLock lock(mutex_);
    if (untaken_) {
        ++counters_.delivered;
        untaken_ = false;
    }
}

FrameCounters FrameExchange::counters() const {
    const MutexLock lock(mutex_);
    FrameCounters result = counters_;
    result.produced = result.delivered + result.lost();
    return result;
}

}  // namespace oru::virtual_bus
