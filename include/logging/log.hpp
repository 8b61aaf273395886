#pragma once

#include <fmt/core.h>

#include "logging/FailureReason.hpp"
#include "logging/KoruLogger.hpp"

namespace oru::detail {

template <class... Arguments>
void emit(LogLevel level, const char* file, int line, fmt::format_string<Arguments...> format,
          Arguments&&... arguments) {
    post(level, file, line, fmt::string_view(format), fmt::make_format_args(arguments...));
}

/// An error is wanted by the log or by the reason of a failure.
inline bool shouldLog(LogLevel level) {
    const Logger* logger = KoruLogger::get_instance().get_logger(MAIN);
    return (logger != nullptr && logger->shouldLog(level)) ||
           (level >= LogLevel::Error && FailureReason::listening() != nullptr);
}

}  // namespace oru::detail

// Macros, so that a message carries its caller's line and one that nobody wants evaluates no argument.
#define ORU_LOG_AT(level, file, line, ...)                             \
    do {                                                               \
        if (::oru::detail::shouldLog(level)) {                         \
            ::oru::detail::emit((level), (file), (line), __VA_ARGS__); \
        }                                                              \
    } while (false)
#define ORU_LOG(level, ...) ORU_LOG_AT(::oru::LogLevel::level, __FILE__, __LINE__, __VA_ARGS__)
