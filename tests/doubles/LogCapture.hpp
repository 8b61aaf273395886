#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "logging/KoruLogger.hpp"
#include "utils/Mutex.hpp"

namespace oru::doubles {

/// Catches what is logged while it lives, through the same seam that the product uses.
class LogCapture {
public:
    explicit LogCapture(LogLevel threshold = LogLevel::TraceL3)
        : logger(make_logger("capture", threshold,
                             [this](const LogRecord& record) {
                                 const MutexLock lock(mutex);
                                 caught.push_back(record);
                             })),
          previous(KoruLogger::get_instance().set_logger(MAIN, logger.get())) {}
    ~LogCapture() {
        (void)KoruLogger::get_instance().set_logger(MAIN, previous);
        flush(*logger);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    [[nodiscard]] std::vector<LogRecord> records() {
        flush(*logger);
        const MutexLock lock(mutex);
        return caught;
    }
    /// Level and text of each message.
    [[nodiscard]] std::vector<std::pair<LogLevel, std::string>> messages() {
        std::vector<std::pair<LogLevel, std::string>> found;
        for (const LogRecord& record : records()) {
            found.emplace_back(record.level, record.text);
        }
        return found;
    }
    [[nodiscard]] std::vector<std::string> texts(LogLevel level) {
        std::vector<std::string> found;
        for (const LogRecord& record : records()) {
            if (record.level == level) {
                found.push_back(record.text);
            }
        }
        return found;
    }
    [[nodiscard]] auto count(LogLevel level, const std::string& text) {
        const std::vector<std::string> found = texts(level);
        return std::count(found.begin(), found.end(), text);
    }
    void clear() {
        flush(*logger);
        const MutexLock lock(mutex);
        caught.clear();
    }

private:
    Mutex mutex;
    std::vector<LogRecord> caught ORU_GUARDED_BY(mutex);
    std::unique_ptr<Logger> logger;
    Logger* previous;
};

}  // namespace oru::doubles
