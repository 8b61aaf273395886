#include "koruone/camera/calibration_text.hpp"

#include <SimpleIni.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <fstream>
#include <iterator>
#include <optional>

#include "calibration/readers.hpp"
#include "collaborators/CollaboratorFactory.hpp"

namespace koruone {
namespace {

constexpr double kSameWithin = 1e-6;  // relative; a calibration is read in single precision
constexpr std::streamsize kLargestFile = 1 << 20;
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

CalibrationText readCalibration(const std::string& path) {
    CalibrationText calibration;
    calibration.path = path;
    std::ifstream file(path, std::ios::binary);
    std::string text(static_cast<std::size_t>(kLargestFile), '\0');
    file.read(text.data(), kLargestFile);
    text.resize(static_cast<std::size_t>(file.gcount()));
    calibration.values = parse(text);
    return calibration;
}

CalibrationText loadCalibration(const std::string& directory, int serialNumber) {
    oru::ConfManager conf;
    oru::openConfFile(directory, serialNumber, conf);
    return conf.is_open ? readCalibration(conf.path) : CalibrationText{};
}

CalibrationText factoryCalibration(int serialNumber) {
    const auto platform = oru::CollaboratorFactory::processDefault();
    CalibrationText calibration;
    if (platform != nullptr) {
        calibration.values = parse(platform->calibration().text(serialNumber));
    }
    return calibration;
}

std::vector<CalibrationDifference> compareCalibrations(const CalibrationText& file, const CalibrationText& factory) {
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

}  // namespace koruone
