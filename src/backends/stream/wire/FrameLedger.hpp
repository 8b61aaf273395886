#pragma once

#include <cstdint>

#include "oru/types.hpp"
#include "utils/Mutex.hpp"

namespace oru::stream {

/// Counts where frames went, so that produced = delivered + lost holds at every moment. Threads: any.
class FrameLedger {
public:
    using Cause = uint64_t FrameCounters::*;

    void delivered(uint64_t frames = 1) { book(&FrameCounters::delivered, frames); }
    void lost(Cause cause, uint64_t frames = 1) { book(cause, frames); }
    [[nodiscard]] FrameCounters counters() const {
        const MutexLock lock(mutex);
        return booked;
    }

private:
    void book(Cause field, uint64_t frames) {
        const MutexLock lock(mutex);
        booked.produced += frames;
        booked.*field += frames;
    }

    mutable Mutex mutex;
    FrameCounters booked ORU_GUARDED_BY(mutex);
};

}  // namespace oru::stream
