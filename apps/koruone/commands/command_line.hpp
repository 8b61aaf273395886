#pragma once

#include <CLI/CLI.hpp>

#include "shared/exit_status.hpp"

namespace koruone {

/// Prints what was asked for (help, version), or says in one sentence what is wrong with the command line.
ExitStatus explainCommandLine(const CLI::App& tool, const CLI::ParseError& error);

}  // namespace koruone
