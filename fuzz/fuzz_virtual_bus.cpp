#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string_view>

#include "backends/virtual_bus/config/camera_config.hpp"

namespace {

using oru::virtual_bus::BusConfig;
using oru::virtual_bus::CameraConfig;
using oru::virtual_bus::Fault;
using oru::virtual_bus::FaultPlan;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

void checkFaults(const FaultPlan& plan) {
    for (const double time : {0.0, 1.0, 1e9}) {
        const double share = plan.at(Fault::DROP_RATE, time);
        require(share >= 0.0 && share <= 1.0);
        require(std::isfinite(plan.at(Fault::CLOCK_OFFSET_MS, time)));
    }
}

void checkBus(const BusConfig& bus) {
    std::set<int> ids;
    std::set<uint32_t> serials;
    for (const CameraConfig& camera : bus.cameras) {
        require(ids.insert(camera.id).second && serials.insert(camera.serial).second);
        require(camera.serial > 0 && camera.lens.fx > 0.0 && std::isfinite(camera.lens.fx));
        checkFaults(camera.faults);
        require(!oru::virtual_bus::calibrationOf(camera).empty());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    BusConfig bus;
    std::string error;
    // The footage itself is not looked at: a path of the input must not reach the file system.
    if (oru::virtual_bus::parseBus(text, "", nullptr, bus, error)) {
        checkBus(bus);
    } else {
        require(!error.empty());
    }
    std::map<int, FaultPlan> plans;
    error.clear();
    if (oru::virtual_bus::parseFaults(text, plans, error)) {
        for (const auto& entry : plans) {
            checkFaults(entry.second);
        }
    } else {
        require(!error.empty());
    }
    return 0;
}
