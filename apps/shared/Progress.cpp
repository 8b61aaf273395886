#include "shared/Progress.hpp"

#include <fmt/core.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace koruone {
namespace {

constexpr std::chrono::milliseconds kRefresh{200};
constexpr int kUsualColumns = 80;
constexpr const char* kEraseLine = "\r\x1b[K";

int terminalColumns() {
    winsize size{};
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
    return known ? size.ws_col : kUsualColumns;
}

}  // namespace

Progress::Progress(std::string name)
    : label(std::move(name)),
      terminal(isatty(STDERR_FILENO) == 1),
      began(std::chrono::steady_clock::now()),
      nextRefresh(began) {}

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
    (void)fmt::print(stderr, "{}{:.{}}", kEraseLine, fmt::format("{} {}", label, text), terminalColumns() - 1);
    std::fflush(stderr);
}

void Progress::show(uint64_t done, uint64_t total, std::string_view text) {
    if (!terminal || total == 0) {
        return;
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    const double share = static_cast<double>(done) / static_cast<double>(total);
    const std::string whole = done == 0 ? "?" : timeText(seconds / share);
    show(
        fmt::format("{:.0f} %, {} of {}{}{}", 100.0 * share, timeText(seconds), whole, text.empty() ? "" : ", ", text));
}

std::string timeText(double seconds) {
    const auto whole = static_cast<uint64_t>(std::max(seconds, 0.0));
    const uint64_t minutes = whole / 60;
    return minutes < 60 ? fmt::format("{}:{:02}", minutes, whole % 60)
                        : fmt::format("{}:{:02}:{:02}", minutes / 60, minutes % 60, whole % 60);
}

void Progress::clear() {
    if (shown) {
        (void)fmt::print(stderr, "{}", kEraseLine);
        std::fflush(stderr);
        shown = false;
    }
}

}  // namespace koruone
