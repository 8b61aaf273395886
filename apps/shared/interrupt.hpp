#pragma once

#include <chrono>

namespace koruone {

/// While it lives, the first SIGINT or SIGTERM only asks the command to stop; a second one ends the process at once.
class InterruptGuard {
public:
    InterruptGuard();
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;
};

/// Whether the command was asked to stop. Threads: any.
bool interrupted();

/// Waits until the time is up or the command is asked to stop; false in the second case.
bool sleepUntil(std::chrono::steady_clock::time_point deadline);

}  // namespace koruone
