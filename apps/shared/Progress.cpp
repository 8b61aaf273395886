#include "shared/Progress.hpp"

#include <fmt/core.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

namespace koruone {
namespace {

constexpr std::chrono::milliseconds kRefresh{200};
constexpr const char* kEraseLine = "\r\x1b[K";

}  // namespace

Progress::Progress(std::string name)
    : label(std::move(name)), terminal(isatty(STDERR_FILENO) == 1), nextRefresh(std::chrono::steady_clock::now()) {}

Progress::~Progress() {
    clear();
}

void Progress::show(std::string_view text) {
    const auto now = std::chrono::steady_clock::now();
    if (!terminal || now < nextRefresh) {
        return;
    }
    nextRefresh = now + kRefresh;
    shown = true;
    (void)fmt::print(stderr, "{}{} {}", kEraseLine, label, text);
    std::fflush(stderr);
}

void Progress::clear() {
    if (shown) {
        (void)fmt::print(stderr, "{}", kEraseLine);
        std::fflush(stderr);
        shown = false;
    }
}

}  // namespace koruone
