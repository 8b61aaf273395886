#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "collaborators/CollaboratorFactory.hpp"
#include "compose/built_in_factory.hpp"
#include "compose/explained.hpp"
#include "compose/modules/module_version.hpp"
#include "logging/KoruLogger.hpp"
#include "logging/redirect.hpp"
#include "oru/gpu.hpp"
#include "oru/logging.hpp"
#include "oru/version.hpp"

namespace oru {
namespace {

thread_local std::string lastReason;

struct NamedLevel {
    LOG_LEVEL level;
    LogLevel internal;  ///< the lowest one that it admits
    const char* name;
};

constexpr std::array kLevels{
    NamedLevel{LOG_LEVEL::TRACE, LogLevel::TraceL3, "TRACE"},
    NamedLevel{LOG_LEVEL::DEBUG, LogLevel::Debug, "DEBUG"},
    NamedLevel{LOG_LEVEL::INFO, LogLevel::Info, "INFO"},
    NamedLevel{LOG_LEVEL::WARNING, LogLevel::Warning, "WARNING"},
    NamedLevel{LOG_LEVEL::ERROR, LogLevel::Error, "ERROR"},
    NamedLevel{LOG_LEVEL::CRITICAL, LogLevel::Critical, "CRITICAL"},
    NamedLevel{LOG_LEVEL::SILENT, kLogNothing, "SILENT"},
};

/// The highest that begins at this level or below it.
LOG_LEVEL publicLevel(LogLevel level) {
    const auto above =
        std::upper_bound(kLevels.begin(), kLevels.end(), level,
                         [](LogLevel wanted, const NamedLevel& named) { return wanted < named.internal; });
    return above == kLevels.begin() ? LOG_LEVEL::TRACE : std::prev(above)->level;
}

const NamedLevel* findLevel(LOG_LEVEL level) {
    const auto found =
        std::find_if(kLevels.begin(), kLevels.end(), [level](const NamedLevel& named) { return named.level == level; });
    return found == kLevels.end() ? nullptr : &*found;
}

}  // namespace

const char* toString(LOG_LEVEL level) {
    const NamedLevel* named = findLevel(level);
    return named == nullptr ? "UNKNOWN" : named->name;
}

void setLogLevel(LOG_LEVEL threshold) {
    const NamedLevel* named = findLevel(threshold);
    Logger* logger = KoruLogger::get_instance().get_logger(MAIN);
    if (named != nullptr && logger != nullptr) {
        logger->setThreshold(named->internal);
    }
}

LOG_LEVEL getLogLevel() {
    const Logger* logger = KoruLogger::get_instance().get_logger(MAIN);
    if (logger == nullptr) {
        return LOG_LEVEL::SILENT;
    }
    const auto lowest = std::find_if(kLevels.begin(), kLevels.end(),
                                     [&](const NamedLevel& named) { return logger->shouldLog(named.internal); });
    return lowest == kLevels.end() ? LOG_LEVEL::SILENT : lowest->level;
}

void setLogSink(LogMessageSink sink) {
    LogSink adapter;
    if (sink) {
        adapter = [sink = std::move(sink)](const LogRecord& record) {
            sink({publicLevel(record.level), record.text, record.file, record.line});
        };
    }
    redirectLog(std::move(adapter));
}

const char* version() {
    return kLibraryVersion;
}

void rememberReason(FailureReason& failed) {
    lastReason = failed.text();
    failed.dropMessages();
}

String lastErrorReason() {
    return lastReason;
}

void setFailuresLogged(bool logged) {
    keepFailuresOutOfLog(!logged);
}

void flushLog() {
    if (Logger* logger = KoruLogger::get_instance().get_logger(MAIN); logger != nullptr) {
        flush(*logger);
    }
}

String gpuDescription() {
    registerBuiltInFactory();
    const auto platform = CollaboratorFactory::processDefault();
    return platform == nullptr ? String{} : String{platform->gpu().description()};
}

}  // namespace oru
