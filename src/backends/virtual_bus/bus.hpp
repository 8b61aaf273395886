#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backends/virtual_bus/VirtualBus.hpp"
#include "backends/virtual_bus/camera_config.hpp"
#include "backends/virtual_bus/camera_lock.hpp"
#include "backends/virtual_bus/virtual_mcu.hpp"
#include "utils/Mutex.hpp"

namespace oru::virtual_bus {

class VirtualBus {
public:
    VirtualBus(Clock& clock, CalibrationSource* calibration, std::optional<std::string> setting)
        : clock_(clock), calibration_(calibration), setting_(std::move(setting)) {}

    [[nodiscard]] Clock& clock() const { return clock_; }

    /// Every camera, in configured order.
    [[nodiscard]] std::vector<DeviceProperties> list();

    /// Takes a camera for its user: the one with that id, or the lowest free one for -1.
    [[nodiscard]] SETUP_STATE claim(int id, CameraConfig& camera, CameraLock& lock);

    /// The micro-controllers of this process, for a reset.
    void addMcu(VirtualMcu* mcu);
    void removeMcu(VirtualMcu* mcu);
    [[nodiscard]] ERROR_CODE resetMcu(int index);

private:
    [[nodiscard]] std::vector<CameraConfig> cameras();
    void offerCalibration(const CameraConfig& camera);

    Clock& clock_;
    CalibrationSource* calibration_;
    std::optional<std::string> setting_;
    Mutex mutex_;
    std::vector<VirtualMcu*> mcus_ ORU_GUARDED_BY(mutex_);
};

}  // namespace oru::virtual_bus
