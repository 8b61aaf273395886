#include "koruone/commands/commands.hpp"
#include "oru/CameraOne.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

ExitStatus runReboot() {
    const oru::ERROR_CODE code = oru::CameraOne::reboot(oru::GMSL);
    if (code != oru::SUCCESS) {
        complain(code, "cannot reboot the camera's micro-controller");
        return EXIT_FAILED;
    }
    writeOutput("The camera's micro-controller restarts.\n");
    return EXIT_OK;
}

}  // namespace

void registerReboot(CLI::App& tool, ExitStatus& status) {
    tool.add_subcommand("reboot", "Restart the live camera's micro-controller")->callback([&status] {
        status = runReboot();
    });
}

}  // namespace koruone
