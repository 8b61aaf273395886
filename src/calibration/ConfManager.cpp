#include "calibration/ConfManager.hpp"

#include <SimpleIni.h>
#include <fmt/format.h>

#include <cstdio>

#include "calibration/numbers.hpp"
#include "oru/calibration.hpp"
#include "utils/text_file.hpp"

namespace oru {
namespace {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<std::FILE, CloseFile>;

}  // namespace

struct ConfManager::Document {
    CSimpleIniTempl<char, SI_GenericNoCase<char>, SI_ConvertA<char>> ini{false, false, false};
};

ConfManager::ConfManager() : ini(std::make_unique<Document>()) {}

ConfManager::~ConfManager() {
    if (!is_open || !write_back) {
        return;
    }
    try {
        if (const FileHandle file{std::fopen(path.c_str(), "wb")}; file) {
            (void)ini->ini.SaveFile(file.get(), true);
        }
    } catch (...) {
        return;
    }
}

void ConfManager::load(const std::string& candidate) {
    path = candidate;
    if (ini->ini.IsEmpty()) {
        ini->ini.SetUnicode();
    }
    const PlainText file = readPlainText(path, kCalibrationTextLimitBytes);
    is_open = file.defect.empty() && ini->ini.LoadData(file.text) >= 0;
}

float ConfManager::getValue(std::string key, float default_value) const {
    if (!is_open) {
        return default_value;
    }
    const std::string section = key.substr(0, key.find(':'));
    const auto lastColon = key.rfind(':');
    const std::string name = lastColon == std::string::npos ? key : key.substr(lastColon + 1);
    const std::string fallback = fmt::format("{:f}", default_value);
    return static_cast<float>(parseNumber(ini->ini.GetValue(section.c_str(), name.c_str(), fallback.c_str())));
}

}  // namespace oru
