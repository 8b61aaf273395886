#pragma once

#include <CLI/CLI.hpp>

#include "shared/exit_status.hpp"

namespace koruone {

// One command is one file: a function here that adds its subcommand with its options to the tool, and a callback that
// runs it and stores how it ended. The callback runs inside CLI::App::parse, on the main thread.

void registerDevices(CLI::App& tool, ExitStatus& status);
void registerReboot(CLI::App& tool, ExitStatus& status);
void registerCalib(CLI::App& tool, ExitStatus& status);
void registerGrab(CLI::App& tool, ExitStatus& status);
void registerInfo(CLI::App& tool, ExitStatus& status);
void registerImu(CLI::App& tool, ExitStatus& status);
void registerControls(CLI::App& tool, ExitStatus& status);
void registerRecord(CLI::App& tool, ExitStatus& status);
void registerPlay(CLI::App& tool, ExitStatus& status);
void registerVerify(CLI::App& tool, ExitStatus& status);
void registerRepair(CLI::App& tool, ExitStatus& status);
void registerConvert(CLI::App& tool, ExitStatus& status);
void registerStream(CLI::App& tool, ExitStatus& status);

}  // namespace koruone
