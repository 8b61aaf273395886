#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <string_view>

namespace oru::virtual_bus {

enum class Fault : std::size_t {
    DROP_RATE,        ///< share of images that never leave the sensor
    DAMAGE_RATE,      ///< share of images that arrive damaged and are thrown away
    JITTER_MS,        ///< each image is taken up to that much late
    CLOCK_OFFSET_MS,  ///< all stamps moved; a change is a step of the clock
    STALL,            ///< no images, while the micro-controller goes on
    UNPLUGGED,        ///< nothing at all
    MCU_SILENT,       ///< no samples
    SETUP_STATE,      ///< what setUp() answers
};
inline constexpr std::size_t kFaultCount = 8;

/// The faults of one camera, each with the time in which it holds, in seconds after the camera was opened.
class FaultPlan {
public:
    /// The value of a fault at that time; 0 is none.
    [[nodiscard]] double at(Fault fault, double seconds) const;

    [[nodiscard]] static bool isKey(std::string_view key);
    /// "VALUE [from SECONDS [for SECONDS]]"; false with what is wrong about it.
    [[nodiscard]] bool set(std::string_view key, std::string_view text, std::string& error);
    /// Takes over what the other plan sets.
    void overlay(const FaultPlan& other);

private:
    struct Setting {
        bool given = false;
        double value = 0.0;
        double from = 0.0;
        double until = std::numeric_limits<double>::infinity();
    };
    std::array<Setting, kFaultCount> settings{};
};

/// Faults of several cameras as a file in the form of the configuration: sections [camera ID] with fault keys only.
[[nodiscard]] bool parseFaults(std::string_view text, std::map<int, FaultPlan>& plans, std::string& error);

/// The faults of one camera while it runs: those of the configuration, and over them those that the control file holds
/// at the moment. One thread at a time.
class FaultFeed {
public:
    FaultFeed(int camera, FaultPlan configured, std::string controlFile)
        : cameraId(camera), configuredPlan(configured), currentPlan(configured), controlPath(std::move(controlFile)) {}

    /// Looks whether the control file changed; one that is wrong is reported once and changes nothing.
    const FaultPlan& poll();

private:
    int cameraId;
    FaultPlan configuredPlan;
    FaultPlan currentPlan;
    std::string controlPath;
    std::array<int64_t, 4> readVersion{};  // of the file: seconds, nanoseconds, size, inode
};

}  // namespace oru::virtual_bus
