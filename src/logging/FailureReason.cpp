#include "logging/FailureReason.hpp"

#include <fmt/format.h>

#include <atomic>
#include <utility>

#include "logging/KoruLogger.hpp"

namespace oru {
namespace {

constexpr std::size_t kMostKept = 16;

std::atomic<bool> failuresKeptOut{false};
thread_local FailureReason* listener = nullptr;

/// Without "[Area] " in front and the point at the end.
std::string_view bare(std::string_view text) {
    if (text.starts_with('[')) {
        const std::size_t end = text.find(']');
        text.remove_prefix(end == std::string_view::npos ? 0 : end + 1);
    }
    while (text.starts_with(' ')) {
        text.remove_prefix(1);
    }
    while (text.ends_with('.') || text.ends_with(' ')) {
        text.remove_suffix(1);
    }
    return text;
}

void logNow(LogLevel level, const char* file, int line, std::string_view text) {
    if (Logger* logger = KoruLogger::get_instance().get_logger(MAIN); logger != nullptr && logger->shouldLog(level)) {
        logger->write(level, file, line, "{}", fmt::make_format_args(text));
    }
}

}  // namespace

void keepFailuresOutOfLog(bool keep) {
    failuresKeptOut.store(keep, std::memory_order_relaxed);
}

FailureReason::FailureReason(Messages messages)
    : outer(std::exchange(listener, this)),
      keepsBack(messages == Messages::KEEP_BACK && failuresKeptOut.load(std::memory_order_relaxed)) {}

FailureReason::~FailureReason() {
    listener = outer;
    for (const Message& message : kept) {
        logNow(message.level, message.file, message.line, message.text);
    }
}

FailureReason* FailureReason::listening() {
    return listener;
}

void FailureReason::offer(std::string_view text) {
    if (reason.empty()) {
        reason = bare(text);
    }
}

bool FailureReason::keepBack(LogLevel level, const char* file, int line, std::string_view text) {
    if (!keepsBack || level < LogLevel::Warning || kept.size() >= kMostKept) {
        return false;
    }
    kept.push_back({level, file, line, std::string(text)});
    return true;
}

namespace detail {

// What cannot be formatted or stored must never fail the operation that says it.
void post(LogLevel level, const char* file, int line, fmt::string_view format, fmt::format_args arguments) {
    try {
        FailureReason* listening = FailureReason::listening();
        if (listening == nullptr || level < LogLevel::Warning) {
            if (Logger* logger = KoruLogger::get_instance().get_logger(MAIN); logger != nullptr) {
                logger->write(level, file, line, format, arguments);
            }
            return;
        }
        const std::string text = fmt::vformat(format, arguments);
        if (level >= LogLevel::Error) {
            listening->offer(text);
        }
        if (!listening->keepBack(level, file, line, text)) {
            logNow(level, file, line, text);
        }
    } catch (...) {
        return;
    }
}

void stateReason(fmt::string_view format, fmt::format_args arguments) {
    try {
        if (FailureReason* listening = FailureReason::listening(); listening != nullptr) {
            listening->offer(fmt::vformat(format, arguments));
        }
    } catch (...) {
        return;
    }
}

}  // namespace detail
}  // namespace oru
