#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <functional>
#include <set>

#include "backends/virtual_bus/config/camera_config.hpp"
#include "backends/virtual_bus/sensor/default_lens.hpp"
#include "utils/ini_text.hpp"

namespace oru::virtual_bus {
namespace {

constexpr const char* kCameraSection = "camera ";

/// A camera as it is read, with what decides about defaults afterwards.
struct Draft {
    CameraConfig camera;
    int line = 0;
    int footage_line = 0;
    int source_line = 0;
    int mcu_line = 0;
    bool has_mcu = false;
    bool has_serial = false;
    bool has_lens = false;
    bool wants_footage = false;
    std::set<std::string> seen;
};

using Setter = std::function<bool(Draft&, const IniEntry&)>;

bool readInteger(const IniEntry& entry, double min, double max, double& number) {
    return toNumber(entry.value, number) && number >= min && number <= max &&
           number == static_cast<double>(static_cast<int64_t>(number));
}

template <class T>
Setter integer(T CameraConfig::*field, double min, double max) {
    return [=](Draft& draft, const IniEntry& entry) {
        double number = 0.0;
        if (!readInteger(entry, min, max, number)) {
            return false;
        }
        draft.camera.*field = static_cast<T>(static_cast<int64_t>(number));
        return true;
    };
}

Setter onOff(bool CameraConfig::*field) {
    return [=](Draft& draft, const IniEntry& entry) { return toSwitch(entry.value, draft.camera.*field); };
}

Setter lensNumber(double Lens::*field, double min) {
    return [=](Draft& draft, const IniEntry& entry) {
        draft.has_lens = true;
        return toNumber(entry.value, draft.camera.lens.*field) && draft.camera.lens.*field > min &&
               draft.camera.lens.*field < 1e6;
    };
}

Setter coefficient(std::size_t index) {
    return [=](Draft& draft, const IniEntry& entry) {
        double& value = draft.camera.lens.distortion[index];
        return toNumber(entry.value, value) && value > -1e6 && value < 1e6;
    };
}

bool setSource(Draft& draft, const IniEntry& entry) {
    draft.wants_footage = entry.value == "footage";
    draft.source_line = entry.line;
    return draft.wants_footage || entry.value == "scene";
}

bool setMotion(Draft& draft, const IniEntry& entry) {
    static constexpr std::array<const char*, 3> kNames{"gentle", "lively", "rest"};
    const auto* found = std::find(kNames.begin(), kNames.end(), entry.value);
    draft.camera.motion = static_cast<Motion>(found - kNames.begin());
    return found != kNames.end();
}

bool setMcu(Draft& draft, const IniEntry& entry) {
    draft.has_mcu = true;
    draft.mcu_line = entry.line;
    return toSwitch(entry.value, draft.camera.mcu);
}

bool setSerial(Draft& draft, const IniEntry& entry) {
    draft.has_serial = true;
    return integer(&CameraConfig::serial, 1, 2147483647)(draft, entry);
}

struct KeyRule {
    const char* key;
    const char* expected;
    Setter set;
};

const std::vector<KeyRule>& rules() {
    static const std::vector<KeyRule> kRules = [] {
        std::vector<KeyRule> list{
            {"model", "30 or 31", integer(&CameraConfig::model, MODEL_MONO_3UM, MODEL_MONO_2UM)},
            {"serial", "a whole number from 1 to 2147483647", setSerial},
            {"availability", "a whole number, 0 for free", integer(&CameraConfig::availability, 0, 1000)},
            {"firmware", "a whole number from 0 to 65535", integer(&CameraConfig::firmware, 0, 65535)},
            {"mcu_firmware", "a whole number from 0 to 65535", integer(&CameraConfig::mcu_firmware, 0, 65535)},
            {"mcu", "yes or no", setMcu},
            {"magnetometer", "yes or no", onOff(&CameraConfig::magnetometer)},
            {"barometer", "yes or no", onOff(&CameraConfig::barometer)},
            {"upside_down", "yes or no", onOff(&CameraConfig::upside_down)},
            {"motion", "gentle, lively or rest", setMotion},
            {"source", "scene or footage", setSource},
            {"fx", "a focal length in pixels", lensNumber(&Lens::fx, 0.0)},
            {"fy", "a focal length in pixels", lensNumber(&Lens::fy, 0.0)},
            {"cx", "a position in pixels", lensNumber(&Lens::cx, -1e6)},
            {"cy", "a position in pixels", lensNumber(&Lens::cy, -1e6)},
            {"footage", "a path",
             [](Draft& draft, const IniEntry& entry) {
                 draft.camera.footage.path = entry.value;
                 draft.footage_line = entry.line;
                 return !entry.value.empty();
             }},
            {"fps", "a number from 1 to 120",
             [](Draft& draft, const IniEntry& entry) {
                 double& fps = draft.camera.footage.fps;
                 return toNumber(entry.value, fps) && fps >= 1.0 && fps <= 120.0;
             }},
            {"loop", "yes or no",
             [](Draft& draft, const IniEntry& entry) { return toSwitch(entry.value, draft.camera.footage.loop); }},
        };
        for (std::size_t i = 0; i < kDistortionNames.size(); ++i) {
            list.push_back({kDistortionNames[i], "a distortion coefficient", coefficient(i)});
        }
        return list;
    }();
    return kRules;
}

bool applyEntry(Draft& draft, const IniEntry& entry, std::string& error) {
    if (!draft.seen.insert(entry.key).second) {
        error = fmt::format("line {}: {} stands twice in [{}]", entry.line, entry.key, entry.section);
        return false;
    }
    if (FaultPlan::isKey(entry.key)) {
        std::string reason;
        if (!draft.camera.faults.set(entry.key, entry.value, reason)) {
            error = fmt::format("line {}: {}", entry.line, reason);
            return false;
        }
        return true;
    }
    const auto& list = rules();
    const auto rule =
        std::find_if(list.begin(), list.end(), [&](const KeyRule& candidate) { return entry.key == candidate.key; });
    if (rule == list.end()) {
        error = fmt::format("line {}: unknown key {} in [{}]", entry.line, entry.key, entry.section);
        return false;
    }
    if (!rule->set(draft, entry)) {
        error = fmt::format("line {}: {} must be {}, not '{}'", entry.line, entry.key, rule->expected, entry.value);
        return false;
    }
    return true;
}

std::string fromDirectory(const std::string& directory, const std::string& path) {
    return path.starts_with('/') || directory.empty() ? path : directory + "/" + path;
}

/// A number of its own for each lens, so that a changed lens never meets the calibration file of an old one.
uint32_t serialFor(const CameraConfig& camera) {
    uint32_t hash = 2166136261U;  // FNV-1a
    for (const char c : calibrationOf(camera) + std::to_string(camera.id)) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
    }
    return 40'000'000U + hash % 50'000'000U;
}

bool completeFootage(Draft& draft, const std::string& directory, FootageDecoder* decoder, std::string& error) {
    CameraConfig& camera = draft.camera;
    if (draft.wants_footage != !camera.footage.path.empty()) {
        error = draft.wants_footage ? fmt::format("line {}: source = footage needs the key footage", draft.source_line)
                                    : fmt::format("line {}: footage needs source = footage", draft.footage_line);
        return false;
    }
    if (!draft.wants_footage || decoder == nullptr) {
        return true;
    }
    camera.footage.path = fromDirectory(directory, camera.footage.path);
    std::string reason;
    if (!probeFootage(*decoder, camera.footage, camera.facts, reason)) {
        error = fmt::format("line {}: footage {}: {}", draft.footage_line, camera.footage.path, reason);
        return false;
    }
    if (!draft.has_mcu) {
        camera.mcu = camera.facts.has_inertial;
    } else if (camera.mcu && !camera.facts.has_inertial) {
        error = fmt::format("line {}: mcu: this footage has no inertial samples", draft.mcu_line);
        return false;
    }
    if (!draft.has_lens && !camera.facts.has_lens) {
        error = fmt::format("line {}: footage: the keys fx, fy, cx and cy at its size of {} x {} are missing",
                            draft.footage_line, camera.facts.width, camera.facts.height);
        return false;
    }
    return true;
}

bool complete(Draft& draft, const std::string& directory, FootageDecoder* decoder, std::string& error) {
    CameraConfig& camera = draft.camera;
    const auto has = [&](const char* key) { return draft.seen.contains(key); };
    if (draft.has_lens && !(has("fx") && has("fy") && has("cx") && has("cy"))) {
        error = fmt::format("line {}: a lens needs all of fx, fy, cx and cy", draft.line);
        return false;
    }
    if (!draft.has_lens && camera.lens.distortion != std::array<double, 12>{}) {
        error = fmt::format("line {}: distortion coefficients need fx, fy, cx and cy", draft.line);
        return false;
    }
    if (!completeFootage(draft, directory, decoder, error)) {
        return false;
    }
    if (!draft.has_lens) {
        camera.lens = camera.facts.has_lens ? camera.facts.lens : defaultLens(camera.model);
    }
    if (!draft.has_serial) {
        camera.serial = serialFor(camera);
    }
    return true;
}

bool findDraft(std::vector<Draft>& drafts, const IniEntry& entry, Draft*& draft, std::string& error) {
    double id = 0.0;
    if (!entry.section.starts_with(kCameraSection) || !toNumber(entry.section.substr(7), id) || id < 0.0 ||
        id > 1000.0 || id != static_cast<double>(static_cast<int>(id))) {
        error = fmt::format("line {}: {} stands in [{}]; only [bus] and [camera ID] are known", entry.line, entry.key,
                            entry.section);
        return false;
    }
    const auto wanted = static_cast<int>(id);
    auto found = std::find_if(drafts.begin(), drafts.end(), [=](const Draft& d) { return d.camera.id == wanted; });
    if (found == drafts.end()) {
        drafts.emplace_back();
        drafts.back().camera.id = wanted;
        drafts.back().line = entry.line;
        found = drafts.end() - 1;
    }
    draft = &*found;
    return true;
}

}  // namespace

bool parseBus(std::string_view text, const std::string& directory, FootageDecoder* decoder, BusConfig& bus,
              std::string& error) {
    std::vector<IniEntry> entries;
    if (!parseIni(text, entries, error)) {
        return false;
    }
    std::vector<Draft> drafts;
    for (const IniEntry& entry : entries) {
        if (entry.section == "bus" && entry.key == "control" && !entry.value.empty()) {
            bus.control_file = fromDirectory(directory, entry.value);
            continue;
        }
        Draft* draft = nullptr;
        if (!findDraft(drafts, entry, draft, error) || !applyEntry(*draft, entry, error)) {
            return false;
        }
    }
    std::set<uint32_t> serials;
    for (Draft& draft : drafts) {
        if (!complete(draft, directory, decoder, error)) {
            return false;
        }
        if (!serials.insert(draft.camera.serial).second) {
            error = fmt::format("line {}: serial {} belongs to two cameras", draft.line, draft.camera.serial);
            return false;
        }
        bus.cameras.push_back(draft.camera);
    }
    return true;
}

}  // namespace oru::virtual_bus
