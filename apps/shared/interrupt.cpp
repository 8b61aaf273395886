#include "shared/interrupt.hpp"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <thread>

namespace koruone {
namespace {

constexpr std::chrono::milliseconds kInterruptLatency{20};

std::atomic<bool> stopAsked{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler stores it");

extern "C" void onStopSignal(int) {
    stopAsked.store(true);
}

void install(int number) {
    struct sigaction action {};
    action.sa_handler = onStopSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(number, &action, nullptr);
}

}  // namespace

InterruptGuard::InterruptGuard() {
    install(SIGINT);
    install(SIGTERM);
}

InterruptGuard::~InterruptGuard() {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

bool interrupted() {
    return stopAsked.load();
}

bool sleepUntil(std::chrono::steady_clock::time_point deadline) {
    while (!interrupted()) {
        const auto now = std::chrono::steady_clock::now();
        if (now >= deadline) {
            return true;
        }
        std::this_thread::sleep_for(std::min<std::chrono::nanoseconds>(deadline - now, kInterruptLatency));
    }
    return false;
}

}  // namespace koruone
