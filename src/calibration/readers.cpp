#include "calibration/readers.hpp"

#include <sys/stat.h>

#include <cstdlib>
#include <utility>

#include "oru/calibration.hpp"
#include "tables/tables.hpp"

namespace oru {
namespace {

constexpr mode_t kDirectoryMode = 0775;
constexpr std::size_t kCoefficientsPerResolution = 6;

std::string systemSettingsDirectory() {
    return detail::settingsRoot() + "/" + _dir_settings;
}

void readCoefficients(const std::string& section, const ConfManager& conf, std::size_t count,
                      CameraParameters& params) {
    for (std::size_t i = 0; i < count; ++i) {
        params.distortion.at(i) = conf.getValue(section + ":" + kDistortionNames.at(i), 0.0F);
    }
}

float pixelPitchMicrometres(MODEL model) {
    switch (model) {
        case MODEL_MONO_3UM:
            return 3.0F;
        case MODEL_MONO_2UM:
            return 2.0F;
        default:
            return 0.0F;
    }
}

float readOutFactor(uint64_t height, MODEL model) {
    switch (height) {
        case 1080:
            return model == MODEL_MONO_3UM ? 1.0F : 2.0F;
        case 1200:
        case 1800:
        case 2160:
            return 1.0F;
        case 600:
            return 2.0F;
        default:
            return 0.0F;
    }
}

}  // namespace

std::string& detail::settingsRoot() {
    static std::string root = "/usr/local/koru";
    return root;
}

std::string calibrationFileName(int serial_number) {
    return "SN" + std::to_string(serial_number) + ".conf";
}

std::string expandHome(std::string text) {
    const char* home = std::getenv("HOME");
    const auto place = text.find('~');
    return home == nullptr || place == std::string::npos ? text : text.replace(place, 1, home);
}

std::string calibrationPath(std::string directory, int serial_number) {
    const std::string prefix = directory.empty() ? systemSettingsDirectory() + "/" : expandHome(std::move(directory));
    return prefix + calibrationFileName(serial_number);
}

void makeSystemSettingsDirectory() {
    (void)::mkdir(detail::settingsRoot().c_str(), kDirectoryMode);
    (void)::mkdir(systemSettingsDirectory().c_str(), kDirectoryMode);
}

void openConfFile(std::string directory, int serial_number, ConfManager& conf) {
    if (!directory.empty()) {
        conf.load(calibrationPath(std::move(directory), serial_number));
    }
    if (conf.is_open) {
        return;
    }
    makeSystemSettingsDirectory();
    conf.load(calibrationPath({}, serial_number));
}

CameraParameters readCamera(std::string section, ConfManager& conf) {
    CameraParameters params;
    params.cx = conf.getValue(section + ":cx", 0.0F);
    params.cy = conf.getValue(section + ":cy", 0.0F);
    params.fx = conf.getValue(section + ":fx", 0.0F);
    params.fy = conf.getValue(section + ":fy", 0.0F);
    readCoefficients(section, conf, kCoefficientsPerResolution, params);
    return params;
}

void readCameraFullDisto(std::string section, ConfManager& conf, CameraParameters& params) {
    readCoefficients(section, conf, kDistortionNames.size(), params);
}

void setLensLength(CameraParameters& params, Resolution resolution, MODEL model) {
    const float sensorLength = pixelPitchMicrometres(model) * params.fx * readOutFactor(resolution.height, model);
    params.focal_length_mm = sensorLength / 1000.0F;
}

}  // namespace oru
