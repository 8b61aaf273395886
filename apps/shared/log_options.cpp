#include "shared/log_options.hpp"

#include <cstdlib>

#include "shared/option_helpers.hpp"

namespace koruone {
namespace {

constexpr const char* kLevelVariable = "KORU_SDK_LOGGER_LEVEL";

const Choices<oru::LOG_LEVEL> kLevels{
    {"trace", oru::LOG_LEVEL::TRACE},     {"debug", oru::LOG_LEVEL::DEBUG}, {"info", oru::LOG_LEVEL::INFO},
    {"warning", oru::LOG_LEVEL::WARNING}, {"error", oru::LOG_LEVEL::ERROR}, {"critical", oru::LOG_LEVEL::CRITICAL},
    {"none", oru::LOG_LEVEL::SILENT},
};

}  // namespace

void addLogOptions(CLI::App& tool, LogOptions& options) {
    auto* log = tool.add_option_group("log", "What is logged to standard error; with every command");
    log->add_flag("-v,--verbose", options.verbose, "Also what the library does; twice: more of it");
    log->add_flag("-q,--quiet", options.quiet, "Nothing but what failed, in one sentence");
    addChoiceOption(*log, "--log-level", options.level, kLevels,
                    "trace, debug, info, warning (default), error, critical or none");
    log->require_option(0, 1);
}

void applyLogOptions(const LogOptions& options) {
    const char* given = std::getenv(kLevelVariable);
    const bool environment = given != nullptr && *given != '\0';
    oru::setFailuresLogged(options.level.has_value() || options.verbose > 0);
    if (options.quiet) {
        oru::setLogLevel(oru::LOG_LEVEL::SILENT);
    } else if (options.level) {
        oru::setLogLevel(*options.level);
    } else if (options.verbose > 0) {
        oru::setLogLevel(options.verbose > 1 ? oru::LOG_LEVEL::DEBUG : oru::LOG_LEVEL::INFO);
    } else if (!environment) {
        oru::setLogLevel(oru::LOG_LEVEL::WARNING);
    }
}

}  // namespace koruone
