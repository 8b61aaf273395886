#include <SimpleIni.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <optional>

#include "calibration/numbers.hpp"
#include "calibration/readers.hpp"
#include "oru/calibration.hpp"
#include "utils/text_file.hpp"

namespace oru {
namespace {

constexpr double kSameWithin = 1e-6;  // relative; a calibration is read in single precision
constexpr const char* kNothing = "nothing";

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
    return text;
}

std::map<std::string, std::string> parse(const std::string& text) {
    std::map<std::string, std::string> values;
    CSimpleIniA ini;
    if (ini.LoadData(text) < 0) {
        return values;
    }
    CSimpleIniA::TNamesDepend sections;
    ini.GetAllSections(sections);
    for (const auto& section : sections) {
        CSimpleIniA::TNamesDepend keys;
        ini.GetAllKeys(section.pItem, keys);
        for (const auto& key : keys) {
            values[lower(std::string(section.pItem) + ":" + key.pItem)] = ini.GetValue(section.pItem, key.pItem, "");
        }
    }
    return values;
}

std::optional<double> toNumber(const std::string& text) {
    double value = 0.0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc{} && stop == end ? std::optional(value) : std::nullopt;
}

bool same(const std::string& a, const std::string& b) {
    const auto x = toNumber(a);
    const auto y = toNumber(b);
    if (!x || !y) {
        return a == b;
    }
    return std::abs(*x - *y) <= kSameWithin * std::max(std::abs(*x), std::abs(*y));
}

}  // namespace

float CalibrationFile::number(const std::string& section, const std::string& key) const {
    const auto found = values.find(lower(section + ":" + key));
    return found == values.end() ? 0.0F : static_cast<float>(parseNumber(found->second.c_str()));
}

std::optional<Lens> CalibrationFile::lens(const SensorMode& mode) const {
    Lens lens{number(mode.section, "fx"),
              number(mode.section, "fy"),
              number(mode.section, "cx"),
              number(mode.section, "cy"),
              {}};
    for (std::size_t i = 0; i < kDistortionNames.size(); ++i) {
        lens.distortion[i] = number(kDistortionSection, kDistortionNames[i]);
    }
    return lens.fx > 0 && lens.fy > 0 ? std::optional(lens) : std::nullopt;
}

CalibrationFile parseCalibration(const std::string& text) {
    return {{}, parse(text)};
}

CalibrationFile readCalibration(const std::string& path) {
    return {path, parse(readPlainText(path, kCalibrationTextLimitBytes).text)};
}

CalibrationFile findCalibration(const std::string& directory, int serialNumber) {
    ConfManager conf;
    openConfFile(directory, serialNumber, conf);
    return conf.is_open ? readCalibration(conf.path) : CalibrationFile{};
}

std::string writeCalibration(const std::string& path, const std::string& text, int serialNumber) {
    const std::string defect = calibrationDefect(text, serialNumber, Completeness::UNKNOWN);
    return defect.empty() ? placeFile(path, text) : defect;
}

std::vector<CalibrationDifference> compareCalibrations(const CalibrationFile& file, const CalibrationFile& factory) {
    std::vector<CalibrationDifference> differences;
    for (const auto& [key, value] : factory.values) {
        const auto found = file.values.find(key);
        if (found == file.values.end()) {
            differences.push_back({key, kNothing, value});
        } else if (!same(found->second, value)) {
            differences.push_back({key, found->second, value});
        }
    }
    for (const auto& [key, value] : file.values) {
        if (factory.values.count(key) == 0) {
            differences.push_back({key, value, kNothing});
        }
    }
    return differences;
}

}  // namespace oru
