#pragma once

#include <atomic>
#include <memory>
#include <unordered_map>

#include "logging/Logger.hpp"
#include "utils/private_export.hpp"

namespace oru {

enum LOGGER_NAME : int32_t { MAIN = 0 };

/// The process-wide registry of loggers. It does not own what set_logger gives it.
/// Threads: MAIN may be looked up and replaced from any thread. Other names: look-ups from any thread once every name
/// is registered; a missing name is inserted.
class KoruLogger {
public:
    /// Logger MAIN: to standard error, threshold Info, or as KORU_SDK_LOGGER_LEVEL says when it is first called
    /// (tracel3, tracel2, tracel1, debug, info, warning, error, critical, none; any case).
    ORU_PRIVATE_API static KoruLogger& get_instance();

    /// The logger of a name; null when it has none, and messages to it are skipped.
    ORU_PRIVATE_API Logger* get_logger(LOGGER_NAME name);
    /// Replaces a logger and returns the previous one; null takes it away. The caller keeps the logger alive.
    Logger* set_logger(LOGGER_NAME name, Logger* logger);

private:
    KoruLogger();

    std::unique_ptr<Logger> builtInLogger;
    std::atomic<Logger*> mainLogger;  // beside the map: every message of the camera looks it up
    std::unordered_map<LOGGER_NAME, Logger*> otherLoggers;
};

}  // namespace oru
