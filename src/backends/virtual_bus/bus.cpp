#include "backends/virtual_bus/bus.hpp"

#include <algorithm>
#include <cstdlib>

#include "backends/virtual_bus/sensor_modes.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::virtual_bus {
namespace {

constexpr const char* kEnvironment = "KORU_VIRTUAL_BUS";
constexpr uint32_t kInUse = 1;

}  // namespace

std::vector<CameraConfig> VirtualBus::cameras() {
    const char* value = std::getenv(kEnvironment);
    const std::string setting = setting_.value_or(value != nullptr ? value : "");
    if (setting.empty()) {
        return defaultCameras();
    }
    if (setting != "off") {
        ORU_LOG(Error, "{} {} is '{}'; only \"off\" is understood.", kTagKoru, kEnvironment, setting);
    }
    return {};
}

void VirtualBus::offerCalibration(const CameraConfig& camera) {
    if (calibration_ != nullptr) {
        calibration_->offer(static_cast<int>(camera.serial), calibrationText(camera.model, camera.lens));
    }
}

std::vector<DeviceProperties> VirtualBus::list() {
    std::vector<DeviceProperties> devices;
    for (const CameraConfig& camera : cameras()) {
        offerCalibration(camera);
        DeviceProperties device;
        device.availability = CameraLock::isHeld(camera.serial) ? kInUse : camera.availability;
        device.id = camera.id;
        device.path = String(("virtual:" + std::to_string(camera.id)).c_str());
        device.model = camera.model;
        device.serial_number = camera.serial;
        devices.push_back(device);
    }
    return devices;
}

SETUP_STATE VirtualBus::claim(int id, CameraConfig& camera, CameraLock& lock) {
    auto candidates = cameras();
    if (id >= 0) {
        std::erase_if(candidates, [id](const CameraConfig& candidate) { return candidate.id != id; });
    }
    std::sort(candidates.begin(), candidates.end(),
              [](const CameraConfig& a, const CameraConfig& b) { return a.id < b.id; });
    SETUP_STATE state = KORU_NOT_RECOGNIZED;
    for (const CameraConfig& candidate : candidates) {
        if (candidate.availability != 0) {
            state = ERROR_STREAM_START;
            continue;
        }
        const auto result = lock.acquire(candidate.serial);
        if (result == CameraLock::Result::taken) {
            offerCalibration(candidate);
            camera = candidate;
            return SETUP_OK;
        }
        if (result == CameraLock::Result::failed) {
            ORU_LOG(Error, "{} The lock file of camera {} can be neither opened nor made.", kTagInit, candidate.serial);
        }
        state = ERROR_STREAM_START;
    }
    return state;
}

void VirtualBus::addMcu(VirtualMcu* mcu) {
    const MutexLock lock(mutex_);
    mcus_.push_back(mcu);
}

void VirtualBus::removeMcu(VirtualMcu* mcu) {
    const MutexLock lock(mutex_);
    std::erase(mcus_, mcu);
}

ERROR_CODE VirtualBus::resetMcu(int /*index*/) {
    const auto attached = cameras();
    if (std::none_of(attached.begin(), attached.end(), [](const CameraConfig& camera) { return camera.mcu; })) {
        return DEVICE_NOT_FOUND;
    }
    const MutexLock lock(mutex_);
    for (VirtualMcu* mcu : mcus_) {
        mcu->reset();
    }
    return SUCCESS;
}

std::shared_ptr<VirtualBus> makeVirtualBus(Clock& clock, CalibrationSource* calibration,
                                           std::optional<std::string> setting) {
    return std::make_shared<VirtualBus>(clock, calibration, std::move(setting));
}

namespace {

class VirtualDirectory final : public DeviceDirectory {
public:
    explicit VirtualDirectory(std::shared_ptr<VirtualBus> bus) : bus_(std::move(bus)) {}

    std::vector<DeviceProperties> getGMSLDevices(bool, bool) override { return bus_->list(); }
    std::vector<DeviceProperties> getGrabberList(bool) override { return bus_->list(); }
    ERROR_CODE resetMCU(int index) override { return bus_->resetMcu(index); }

private:
    std::shared_ptr<VirtualBus> bus_;
};

}  // namespace

std::unique_ptr<DeviceDirectory> makeVirtualDirectory(std::shared_ptr<VirtualBus> bus) {
    return std::make_unique<VirtualDirectory>(std::move(bus));
}

}  // namespace oru::virtual_bus
