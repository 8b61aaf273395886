#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>

#include "logging/log.hpp"
#include "logging/messages.hpp"
#include "utils/Mutex.hpp"

namespace oru::stream {

/// Runs one piece of work of an operation or of a thread's loop, and keeps what it throws from going further: for want
/// of memory, or from a device. True when it threw nothing; else there is an Error line, one a second at most from each
/// place that calls this. Work that needs a lock states so where it is written, in a function that holds it.
template <class Work>
bool guarded(const char* what, Work&& work) noexcept ORU_NO_THREAD_SAFETY_ANALYSIS {
    const auto complain = [what](const char* reason) {
        static std::atomic<int64_t> quietUntilMs{INT64_MIN};
        constexpr int64_t kQuietMs = 1000;
        const auto elapsed = std::chrono::steady_clock::now().time_since_epoch();
        const int64_t nowMs = std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count();
        if (int64_t until = quietUntilMs.load();
            nowMs >= until && quietUntilMs.compare_exchange_strong(until, nowMs + kQuietMs)) {
            ORU_LOG(Error, "{} {} failed: {}", kTagStreaming, what, reason);
        }
    };
    try {
        work();
        return true;
    } catch (const std::exception& failure) {
        complain(failure.what());
    } catch (...) {
        complain("for a reason that it does not tell");
    }
    return false;
}

}  // namespace oru::stream
