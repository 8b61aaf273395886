#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "logging/KoruLogger.hpp"
#include "utils/Mutex.hpp"

namespace oru {

/// Takes the place of logger MAIN and collects its messages; puts the former logger back.
class LogCapture {
public:
    explicit LogCapture(LogLevel threshold = LogLevel::TraceL3)
        : logger(make_logger("capture", threshold, [this](const LogRecord& record) { keep(record); })),
          former(KoruLogger::get_instance().set_logger(MAIN, logger.get())) {}
    ~LogCapture() { KoruLogger::get_instance().set_logger(MAIN, former); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// Everything logged so far.
    std::vector<LogRecord> records() {
        flush(*logger);
        const MutexLock lock(mutex);
        return kept;
    }
    /// Level and text of everything logged so far.
    std::vector<std::pair<LogLevel, std::string>> messages() {
        std::vector<std::pair<LogLevel, std::string>> result;
        for (const LogRecord& record : records()) {
            result.emplace_back(record.level, record.text);
        }
        return result;
    }

private:
    void keep(const LogRecord& record) {
        const MutexLock lock(mutex);
        kept.push_back(record);
    }

    Mutex mutex;
    std::vector<LogRecord> kept ORU_GUARDED_BY(mutex);
    std::unique_ptr<Logger> logger;
    Logger* former;
};

}  // namespace oru
