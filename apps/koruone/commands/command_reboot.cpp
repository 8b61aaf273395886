#include <fmt/core.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <optional>

#include "koruone/commands/commands.hpp"
#include "oru/CameraOne.hpp"
#include "shared/json_output.hpp"
#include "shared/option_helpers.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

struct RebootOptions {
    std::optional<uint32_t> serial;
    bool json = false;
};

/// The reset reaches the one camera of a link; with several attached it must be clear that it is the one meant.
bool isTheOneAttached(uint32_t serial) {
    const std::vector<oru::DeviceProperties> devices = oru::CameraOne().getDeviceList();
    const auto same = [&](const oru::DeviceProperties& device) { return device.serial_number == serial; };
    if (std::none_of(devices.begin(), devices.end(), same)) {
        complain("no attached camera has the serial number {}; choose one that 'koruone devices' lists.", serial);
        return false;
    }
    return true;
}

ExitStatus runReboot(const RebootOptions& options) {
    if (options.serial && !isTheOneAttached(*options.serial)) {
        return EXIT_FAILED;
    }
    const oru::ERROR_CODE code = oru::CameraOne::reboot(oru::GMSL);
    if (code != oru::SUCCESS) {
        complain(code, "cannot reboot the camera's micro-controller");
        return EXIT_FAILED;
    }
    if (options.json) {
        writeJsonLine({{"rebooted", true}, {"serial_number", options.serial ? Json(*options.serial) : Json(nullptr)}});
    } else {
        writeOutput("The camera's micro-controller restarts.\n");
    }
    return EXIT_OK;
}

}  // namespace

void registerReboot(CLI::App& tool, ExitStatus& status) {
    auto options = std::make_shared<RebootOptions>();
    CLI::App* command = tool.add_subcommand("reboot", "Restart the live camera's micro-controller");
    addNumberOption(*command, "--serial", options->serial, uint32_t{1}, std::numeric_limits<uint32_t>::max(),
                    "Only when the camera with this serial number is attached");
    command->add_flag("--json", options->json, "Print one object");
    command->callback([options, &status] { status = runReboot(*options); });
}

}  // namespace koruone
