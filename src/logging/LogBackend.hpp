#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "logging/Logger.hpp"

namespace oru {

/// One message on its way to the sink; the views live for the call.
struct BackendMessage {
    LogLevel level = LogLevel::Info;
    std::string_view text;
    std::string_view file;
    int line = 0;
    std::chrono::system_clock::time_point time;
};

/// Called on the back end's thread only, one message at a time; what it throws is dropped.
using BackendSink = std::function<void(const BackendMessage&)>;

/// A logging library behind the seam: queues messages and hands them, in order, to one sink on a thread of its own.
/// Threads: any. The destructor delivers what is queued.
class LogBackend {
public:
    virtual ~LogBackend() = default;

    /// Copies the text; `file` must stay valid for ever (a literal). A full queue is waited for 100 ms at most; from
    /// then on messages are dropped and counted until there is room, and the next one tells how many were lost.
    virtual void write(LogLevel level, const char* file, int line, std::string_view text) = 0;
    /// Waits, 10 s at most, until all messages written before the call are with the sink. Returns at once on the back
    /// end's own thread.
    virtual void flush() = 0;
};

inline constexpr std::chrono::seconds kFlushLimit{10};
inline constexpr std::chrono::milliseconds kFullQueueLimit{100};

std::unique_ptr<LogBackend> makeLogBackend(const std::string& name, BackendSink sink);

}  // namespace oru
