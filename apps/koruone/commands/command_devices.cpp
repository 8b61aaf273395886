#include <fmt/core.h>

#include <memory>

#include "koruone/commands/commands.hpp"
#include "oru/CameraOne.hpp"
#include "oru/gpu.hpp"
#include "shared/json_output.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

std::string availabilityText(uint32_t availability) {
    return availability == 0 ? "free" : "in use";
}

void printJson(const std::vector<oru::DeviceProperties>& devices) {
    Json list = Json::array();
    for (const oru::DeviceProperties& device : devices) {
        list.push_back({{"id", device.id},
                        {"model", static_cast<int>(device.model)},
                        {"serial_number", device.serial_number},
                        {"path", device.path.get()},
                        {"availability", device.availability}});
    }
    writeJsonLine(list);
}

void printTable(const std::vector<oru::DeviceProperties>& devices) {
    if (devices.empty()) {
        return;
    }
    constexpr const char* kRow = "{:>4}  {:>5}  {:>13}  {:<16}  {}\n";
    writeOutput(fmt::format(kRow, "id", "model", "serial number", "path", "availability"));
    for (const oru::DeviceProperties& device : devices) {
        writeOutput(fmt::format(kRow, device.id, static_cast<int>(device.model), device.serial_number,
                                device.path.get(), availabilityText(device.availability)));
    }
}

ExitStatus runDevices(bool json) {
    oru::CameraOne camera;
    const std::vector<oru::DeviceProperties> devices = camera.getDeviceList();
    if (json) {
        printJson(devices);
    } else {
        printTable(devices);
        writeOutput(fmt::format("GPU: {}\n", oru::gpuDescription().get()));
    }
    if (const oru::String problem = camera.getDeviceListProblem(); !problem.empty()) {
        complain("cameras are missing: {}; correct the file or unset KORU_VIRTUAL_BUS.", problem.get());
        return EXIT_FAILED;
    }
    if (devices.empty()) {
        complain("no camera is attached; check the cable, or unset KORU_VIRTUAL_BUS to get the virtual cameras.");
    }
    return EXIT_OK;
}

}  // namespace

void registerDevices(CLI::App& tool, ExitStatus& status) {
    auto json = std::make_shared<bool>(false);
    CLI::App* command = tool.add_subcommand("devices", "List the attached cameras");
    command->add_flag("--json", *json, "Print a list with one object a camera");
    command->callback([json, &status] { status = runDevices(*json); });
}

}  // namespace koruone
