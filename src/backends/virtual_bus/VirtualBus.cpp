#include "backends/virtual_bus/VirtualBus.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>

#include "backends/virtual_bus/guarded.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"
#include "utils/text_file.hpp"

namespace oru::virtual_bus {
namespace {

constexpr const char* kEnvironment = "KORU_VIRTUAL_BUS";
constexpr const char* kOff = "off";
constexpr uint32_t kInUse = 1;
constexpr std::size_t kMaxConfigBytes = 1 << 20;

/// Unplugged from the start, by the configuration or by the control file.
bool isAbsent(const BusConfig& bus, const CameraConfig& camera) {
    FaultFeed feed(camera.id, camera.faults, bus.control_file);
    return feed.poll().at(Fault::UNPLUGGED, 0.0) != 0.0;
}

}  // namespace

std::string VirtualBus::setting() const {
    const char* value = std::getenv(kEnvironment);
    return givenSetting.value_or(value != nullptr ? value : "");
}

BusConfig VirtualBus::config() {
    const std::string chosen = setting();
    if (chosen.empty()) {
        return defaultBus();
    }
    if (chosen == kOff) {
        return {};
    }
    const MutexLock lock(mutex);
    reload(chosen);
    return fileConfig;
}

std::string VirtualBus::problem() {
    const std::string chosen = setting();
    if (chosen.empty() || chosen == kOff) {
        return {};
    }
    const MutexLock lock(mutex);
    reload(chosen);
    return fileProblem;
}

void VirtualBus::reload(const std::string& path) {
    const auto [text, defect] = readPlainText(path, kMaxConfigBytes);
    if (path == file && text == fileText) {
        if (!fileProblem.empty()) {
            ORU_REASON("{}; correct the file or unset the variable", fileProblem);
        }
        return;
    }
    file = path;
    fileText = text;
    fileConfig = {};
    fileProblem.clear();
    std::string error = defect;
    const auto slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    BusConfig read;
    if (defect.empty() && parseBus(text, directory, &decoder, read, error)) {
        fileConfig = std::move(read);
    } else {
        fileProblem = fmt::format("{} {}: {}", kEnvironment, path, error);
        ORU_REASON("{}; correct the file or unset the variable", fileProblem);
        ORU_LOG(Error, "{} {}. There are no virtual cameras.", kTagKoru, fileProblem);
    }
}

std::string VirtualBus::controlFile() {
    return config().control_file;
}

void VirtualBus::offerCalibration(const CameraConfig& camera) {
    if (calibrationSource != nullptr) {
        calibrationSource->offer(static_cast<int>(camera.serial), calibrationOf(camera));
    }
}

std::vector<DeviceProperties> VirtualBus::list() {
    std::vector<DeviceProperties> devices;
    const BusConfig bus = config();
    for (const CameraConfig& camera : bus.cameras) {
        if (isAbsent(bus, camera)) {
            continue;
        }
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
    const BusConfig bus = config();
    auto candidates = bus.cameras;
    std::erase_if(candidates, [&](const CameraConfig& candidate) {
        return (id >= 0 && candidate.id != id) || isAbsent(bus, candidate);
    });
    std::sort(candidates.begin(), candidates.end(),
              [](const CameraConfig& a, const CameraConfig& b) { return a.id < b.id; });
    SETUP_STATE state = KORU_NOT_RECOGNIZED;
    std::string holder;
    if (candidates.empty() && (bus.cameras.empty() || id < 0)) {
        ORU_REASON("no camera is attached");
    } else if (candidates.empty()) {
        ORU_REASON("no attached camera has the id {}", id);
    }
    for (const CameraConfig& candidate : candidates) {
        if (candidate.availability != 0) {
            holder = fmt::format("camera {} is held by another program", candidate.id);
            state = ERROR_STREAM_START;
            continue;
        }
        const auto result = lock.acquire(candidate.serial);
        if (result == CameraLock::Result::TAKEN) {
            offerCalibration(candidate);
            camera = candidate;
            FaultFeed feed(candidate.id, candidate.faults, bus.control_file);
            return static_cast<SETUP_STATE>(feed.poll().at(Fault::SETUP_STATE, 0.0));
        }
        if (result == CameraLock::Result::FAILED) {
            ORU_LOG(Error, "{} The lock file of camera {} can be neither opened nor made.", kTagInit, candidate.serial);
        }
        if (result == CameraLock::Result::BUSY) {
            holder = fmt::format("camera {} is in use by {}", candidate.id, CameraLock::holder(candidate.serial));
            ORU_LOG(Warning, "{} Camera {} is in use by {}.", kTagInit, candidate.id,
                    CameraLock::holder(candidate.serial));
        }
        state = ERROR_STREAM_START;
    }
    if (!holder.empty()) {
        ORU_REASON("{}", holder);
    }
    return state;
}

void VirtualBus::addMcu(VirtualMcu* mcu) {
    const MutexLock lock(mutex);
    mcus.push_back(mcu);
}

void VirtualBus::removeMcu(VirtualMcu* mcu) {
    const MutexLock lock(mutex);
    std::erase(mcus, mcu);
}

ERROR_CODE VirtualBus::resetMcu(int /*index*/) {
    const auto attached = config().cameras;
    if (std::none_of(attached.begin(), attached.end(), [](const CameraConfig& camera) { return camera.mcu; })) {
        return DEVICE_NOT_FOUND;
    }
    const MutexLock lock(mutex);
    for (VirtualMcu* mcu : mcus) {
        mcu->reset();
    }
    return SUCCESS;
}

std::shared_ptr<VirtualBus> makeVirtualBus(Clock& clock, CalibrationSource* calibration, FootageDecoder& footage,
                                           std::optional<std::string> setting) {
    return std::make_shared<VirtualBus>(clock, calibration, footage, std::move(setting));
}

namespace {

class VirtualDirectory final : public DeviceDirectory {
public:
    explicit VirtualDirectory(std::shared_ptr<VirtualBus> virtualBus) : bus(std::move(virtualBus)) {}

    std::vector<DeviceProperties> getGMSLDevices(bool, bool) override { return list(); }
    std::vector<DeviceProperties> getGrabberList(bool) override { return list(); }
    String problem() override {
        return guarded("problem", String(), [this] { return String(bus->problem().c_str()); });
    }
    ERROR_CODE resetMCU(int index) override {
        return guarded("resetMCU", FAILURE, [this, index] { return bus->resetMcu(index); });
    }

private:
    std::vector<DeviceProperties> list() {
        return guarded("list", std::vector<DeviceProperties>(), [this] { return bus->list(); });
    }

    std::shared_ptr<VirtualBus> bus;
};

}  // namespace

std::unique_ptr<DeviceDirectory> makeVirtualDirectory(std::shared_ptr<VirtualBus> bus) {
    return std::make_unique<VirtualDirectory>(std::move(bus));
}

}  // namespace oru::virtual_bus
