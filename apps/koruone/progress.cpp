#include "progress.hpp"

#include <fmt/core.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

namespace koruone {
namespace {

constexpr std::chrono::milliseconds kRefresh{200};
constexpr const char* kEraseLine = "\r\x1b[K";

}  // namespace

Progress::Progress(std::string label)
    : label_(std::move(label)), terminal_(isatty(STDERR_FILENO) == 1), next_(std::chrono::steady_clock::now()) {}

Progress::~Progress() {
    clear();
}

void Progress::show(std::string_view text) {
    const auto now = std::chrono::steady_clock::now();
    if (!terminal_ || now < next_) {
        return;
    }
    next_ = now + kRefresh;
    shown_ = true;
    (void)fmt::print(stderr, "{}{} {}", kEraseLine, label_, text);
    std::fflush(stderr);
}

void Progress::clear() {
    if (shown_) {
        (void)fmt::print(stderr, "{}", kEraseLine);
        std::fflush(stderr);
        shown_ = false;
    }
}

}  // namespace koruone
