#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backends/virtual_bus/CameraLock.hpp"
#include "backends/virtual_bus/config/camera_config.hpp"
#include "backends/virtual_bus/inertial/VirtualMcu.hpp"
#include "backends/virtual_bus/virtual_bus_factory.hpp"
#include "utils/Mutex.hpp"

namespace oru::virtual_bus {

class VirtualBus {
public:
    VirtualBus(Clock& clock, CalibrationSource* calibration, FootageDecoder& footage,
               std::optional<std::string> setting)
        : systemClock(clock), calibrationSource(calibration), decoder(footage), givenSetting(std::move(setting)) {}

    [[nodiscard]] Clock& clock() const { return systemClock; }
    [[nodiscard]] FootageDecoder& footageDecoder() const { return decoder; }

    /// Every camera, in configured order.
    [[nodiscard]] std::vector<DeviceProperties> list();

    /// What is wrong with the configuration file, with its line; empty when nothing is.
    [[nodiscard]] std::string problem();

    /// Takes a camera for its user: the one with that id, or the lowest free one for -1.
    [[nodiscard]] SETUP_STATE claim(int id, CameraConfig& camera, CameraLock& lock);
    /// Where faults may be changed while cameras run; empty when nothing is configured.
    [[nodiscard]] std::string controlFile();

    /// The micro-controllers of this process, for a reset.
    void addMcu(VirtualMcu* mcu);
    void removeMcu(VirtualMcu* mcu);
    [[nodiscard]] ERROR_CODE resetMcu(int index);

private:
    [[nodiscard]] std::string setting() const;
    [[nodiscard]] BusConfig config();
    void reload(const std::string& path) ORU_REQUIRES(mutex);
    void offerCalibration(const CameraConfig& camera);

    Clock& systemClock;
    CalibrationSource* calibrationSource;
    FootageDecoder& decoder;
    std::optional<std::string> givenSetting;
    Mutex mutex;
    std::vector<VirtualMcu*> mcus ORU_GUARDED_BY(mutex);
    // The configuration file as it was last read.
    std::string file ORU_GUARDED_BY(mutex);
    std::string fileText ORU_GUARDED_BY(mutex);
    BusConfig fileConfig ORU_GUARDED_BY(mutex);
    std::string fileProblem ORU_GUARDED_BY(mutex);
};

}  // namespace oru::virtual_bus
