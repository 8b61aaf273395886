#include <csignal>
#include <exception>

#include "koruone/commands/command_line.hpp"
#include "koruone/commands/commands.hpp"
#include "shared/log_options.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

ExitStatus runTool(int argc, char** argv) {
    CLI::App tool{"Looks at, records and controls KORU One cameras.", "koruone"};
    tool.set_version_flag("--version", "koruone " ORU_VERSION);
    tool.require_subcommand(1);
    tool.get_formatter()->column_width(34);
    LogOptions log;
    addLogOptions(tool, log);
    tool.parse_complete_callback([&log] { applyLogOptions(log); });
    tool.fallthrough();

    ExitStatus status = EXIT_OK;
    registerDevices(tool, status);
    registerInfo(tool, status);
    registerGrab(tool, status);
    registerImu(tool, status);
    registerControls(tool, status);
    registerRecord(tool, status);
    registerPlay(tool, status);
    registerVerify(tool, status);
    registerRepair(tool, status);
    registerConvert(tool, status);
    registerStream(tool, status);
    registerCalib(tool, status);
    registerReboot(tool, status);
    try {
        tool.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return explainCommandLine(tool, error);
    }
    return status;
}

}  // namespace
}  // namespace koruone

int main(int argc, char** argv) {
    // A reader that goes away (`| head`) or a file at its size limit shows as a failed write, so that the camera and a
    // recording are still closed in order.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        const koruone::ExitStatus status = koruone::runTool(argc, argv);
        return koruone::finishOutput(status);
    } catch (const std::exception& error) {
        koruone::complain("stopped: {}.", error.what());
        return koruone::EXIT_FAILED;
    }
}
