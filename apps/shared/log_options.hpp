#pragma once

#include <CLI/CLI.hpp>
#include <optional>

#include "oru/logging.hpp"

namespace koruone {

/// What the library says beside the tool's own sentences. Without an option: warnings and errors, or as
/// KORU_SDK_LOGGER_LEVEL says, but not of an operation that fails, whose reason the tool tells itself.
struct LogOptions {
    int verbose = 0;
    bool quiet = false;
    std::optional<oru::LOG_LEVEL> level;
};

/// Adds -v, -q and --log-level. `options` must outlive the parsing.
void addLogOptions(CLI::App& tool, LogOptions& options);
void applyLogOptions(const LogOptions& options);

}  // namespace koruone
