#include "backends/virtual_bus/sensor/faults.hpp"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "logging/log.hpp"
#include "logging/messages.hpp"
#include "utils/ini_text.hpp"
#include "utils/text_file.hpp"

namespace oru::virtual_bus {
namespace {

struct Key {
    const char* name;
    Fault fault;
    bool is_switch;
    double min;
    double max;
    double scale;  // of a switch: the value that "on" stands for
};

constexpr std::array<Key, 9> kKeys{{
    {"drop_rate", Fault::DROP_RATE, false, 0.0, 1.0, 1.0},
    {"damage_rate", Fault::DAMAGE_RATE, false, 0.0, 1.0, 1.0},
    {"jitter_ms", Fault::JITTER_MS, false, 0.0, 1000.0, 1.0},
    {"clock_offset_ms", Fault::CLOCK_OFFSET_MS, false, -1e9, 1e9, 1.0},
    {"stall", Fault::STALL, true, 0.0, 1.0, 1.0},
    {"unplugged", Fault::UNPLUGGED, true, 0.0, 1.0, 1.0},
    {"mcu_silent", Fault::MCU_SILENT, true, 0.0, 1.0, 1.0},
    {"setup_state", Fault::SETUP_STATE, false, -1000.0, 1000.0, 1.0},
    {"wrong_sensors_serial", Fault::SETUP_STATE, true, 0.0, 1.0, 11.0},
}};

constexpr std::size_t kMaxControlBytes = 65'536;

const Key* findKey(std::string_view name) {
    const auto* found = std::find_if(kKeys.begin(), kKeys.end(), [name](const Key& key) { return name == key.name; });
    return found != kKeys.end() ? found : nullptr;
}

std::vector<std::string> words(std::string_view text) {
    std::vector<std::string> result;
    while (!text.empty()) {
        const auto end = text.find_first_of(" \t");
        if (end != 0) {
            result.emplace_back(text.substr(0, end));
        }
        text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
    }
    return result;
}

bool readValue(const Key& key, const std::string& word, double& value) {
    if (key.is_switch) {
        bool on = false;
        const bool valid = toSwitch(word, on);
        value = on ? key.scale : 0.0;
        return valid;
    }
    return toNumber(word, value) && value >= key.min && value <= key.max;
}

}  // namespace

double FaultPlan::at(Fault fault, double seconds) const {
    const Setting& setting = settings[static_cast<std::size_t>(fault)];
    return seconds >= setting.from && seconds < setting.until ? setting.value : 0.0;
}

bool FaultPlan::isKey(std::string_view key) {
    return findKey(key) != nullptr;
}

bool FaultPlan::set(std::string_view name, std::string_view text, std::string& error) {
    const Key* key = findKey(name);
    if (key == nullptr) {
        error = fmt::format("unknown key {}", name);
        return false;
    }
    const auto parts = words(text);
    Setting setting;
    setting.given = true;
    const bool hasFrom = parts.size() >= 3;
    const bool hasFor = parts.size() == 5;
    double duration = 0.0;
    const bool valid = (parts.size() == 1 || parts.size() == 3 || hasFor) && readValue(*key, parts[0], setting.value) &&
                       (!hasFrom || (parts[1] == "from" && toNumber(parts[2], setting.from) && setting.from >= 0.0)) &&
                       (!hasFor || (parts[3] == "for" && toNumber(parts[4], duration) && duration >= 0.0));
    if (!valid) {
        error = key->is_switch
                    ? fmt::format("{} must be on or off, optionally: on from SECONDS for SECONDS", name)
                    : fmt::format("{} must be a number from {} to {}, optionally: N from SECONDS for SECONDS", name,
                                  key->min, key->max);
        return false;
    }
    if (hasFor) {
        setting.until = setting.from + duration;
    }
    settings[static_cast<std::size_t>(key->fault)] = setting;
    return true;
}

void FaultPlan::overlay(const FaultPlan& other) {
    for (std::size_t i = 0; i < settings.size(); ++i) {
        if (other.settings[i].given) {
            settings[i] = other.settings[i];
        }
    }
}

bool parseFaults(std::string_view text, std::map<int, FaultPlan>& plans, std::string& error) {
    std::vector<IniEntry> entries;
    if (!parseIni(text, entries, error)) {
        return false;
    }
    for (const IniEntry& entry : entries) {
        double id = 0.0;
        if (!entry.section.starts_with("camera ") || !toNumber(entry.section.substr(7), id) || id < 0.0 || id > 1e6) {
            error = fmt::format("line {}: {} does not stand in a section [camera ID]", entry.line, entry.key);
            return false;
        }
        std::string reason;
        if (!plans[static_cast<int>(id)].set(entry.key, entry.value, reason)) {
            error = fmt::format("line {}: {}", entry.line, reason);
            return false;
        }
    }
    return true;
}

const FaultPlan& FaultFeed::poll() {
    if (controlPath.empty()) {
        return currentPlan;
    }
    struct stat facts {};
    std::array<int64_t, 4> version{};
    if (::stat(controlPath.c_str(), &facts) == 0) {
        version = {facts.st_mtim.tv_sec, facts.st_mtim.tv_nsec, facts.st_size, static_cast<int64_t>(facts.st_ino)};
    }
    if (version == readVersion) {
        return currentPlan;
    }
    readVersion = version;
    // A file that is gone plans nothing.
    const PlainText control = version[3] != 0 ? readPlainText(controlPath, kMaxControlBytes) : PlainText();
    std::string error = control.defect;
    std::map<int, FaultPlan> plans;
    if (error.empty() && parseFaults(control.text, plans, error)) {
        currentPlan = configuredPlan;
        currentPlan.overlay(plans[cameraId]);
    } else {
        ORU_LOG(Error, "{} Control file {}: {}. Nothing is changed.", kTagKoru, controlPath, error);
    }
    return currentPlan;
}

}  // namespace oru::virtual_bus
