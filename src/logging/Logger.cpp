#include "logging/Logger.hpp"

#include <fmt/format.h>

#include <utility>

#include "logging/LogBackend.hpp"

namespace oru {

Logger::Logger(std::unique_ptr<LogBackend> backend, LogLevel threshold)
    : writer(std::move(backend)), lowestLevel(threshold) {}

Logger::~Logger() = default;

// A message that cannot be formatted or stored must never fail the operation that logs it.
void Logger::write(LogLevel level, const char* file, int line, fmt::string_view format, fmt::format_args arguments) {
    try {
        fmt::memory_buffer text;
        try {
            fmt::vformat_to(fmt::appender(text), format, arguments);
        } catch (const fmt::format_error&) {
            text.clear();
            text.append(format);
        }
        writer->write(level, file, line, {text.data(), text.size()});
    } catch (...) {
        return;
    }
}

std::unique_ptr<Logger> make_logger(std::string name, LogLevel threshold, LogSink sink) {
    auto adapter = [sink = std::move(sink)](const BackendMessage& message) {
        sink({message.level, std::string(message.text), std::string(message.file), message.line});
    };
    return std::make_unique<Logger>(makeLogBackend(name, std::move(adapter)), threshold);
}

void flush(Logger& logger) {
    logger.writer->flush();
}

}  // namespace oru
