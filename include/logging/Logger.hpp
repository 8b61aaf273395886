#pragma once

#include <fmt/core.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "utils/private_export.hpp"

namespace oru {

enum class LogLevel : uint8_t { TraceL3, TraceL2, TraceL1, Debug, Info, Warning, Error, Critical };

/// A threshold that admits nothing.
inline constexpr auto kLogNothing = static_cast<LogLevel>(8);

/// One message as a sink receives it.
struct LogRecord {
    LogLevel level = LogLevel::Info;
    std::string text;
    std::string file;
    int line = 0;
};

/// Receives the messages on the back end's thread.
using LogSink = std::function<void(const LogRecord&)>;

class LogBackend;  // the library behind the seam

/// A named logger. Threads: any.
class Logger {
public:
    Logger(std::unique_ptr<LogBackend> backend, LogLevel threshold);
    ~Logger();
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    [[nodiscard]] bool shouldLog(LogLevel level) const { return level >= lowestLevel.load(std::memory_order_relaxed); }
    void setThreshold(LogLevel threshold) { lowestLevel.store(threshold, std::memory_order_relaxed); }
    /// Formats and queues one message whatever the threshold. Texts are copied; null texts are not allowed.
    ORU_PRIVATE_API void write(LogLevel level, const char* file, int line, fmt::string_view format,
                               fmt::format_args arguments);

private:
    friend void flush(Logger& logger);

    std::unique_ptr<LogBackend> writer;
    std::atomic<LogLevel> lowestLevel;
};

/// A logger of its own that hands every message to the sink.
std::unique_ptr<Logger> make_logger(std::string name, LogLevel threshold, LogSink sink);

/// Returns when every message written before the call has reached the sink.
void flush(Logger& logger);

}  // namespace oru
