#include <fmt/core.h>

#include <array>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>

#include "calibration/readers.hpp"
#include "collaborators/CalibrationSource.hpp"
#include "koruone/camera/calibration_text.hpp"
#include "koruone/camera/settings_directory.hpp"
#include "koruone/commands/commands.hpp"
#include "oru/CameraOne.hpp"
#include "shared/option_helpers.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

struct CalibOptions {
    std::string file;
    std::optional<uint32_t> serial;
    std::string settings;
    bool refresh = false;
};

struct Section {
    const char* name;
    const char* size;
};

constexpr std::array kSections{
    Section{"CAM_svga", "960x600"},      Section{"CAM_fhd", "1920x1080"}, Section{"CAM_fhd1200", "1920x1200"},
    Section{"CAM_qhdplus", "3200x1800"}, Section{"CAM_4k", "3840x2160"},
};
constexpr std::array kDistortionNames{"k1", "k2", "p1", "p2", "k3", "k4", "k5", "k6", "s1", "s2", "s3", "s4"};

/// The N of ".../SNn.conf".
std::optional<uint32_t> serialOfFile(const std::string& path) {
    const std::string name = std::filesystem::path(path).filename().string();
    unsigned serial = 0;
    int length = 0;
    if (std::sscanf(name.c_str(), "SN%u.conf%n", &serial, &length) != 1 ||
        static_cast<std::size_t>(length) != name.size()) {
        return std::nullopt;
    }
    return serial;
}

bool printCalibration(const std::string& path) {
    oru::ConfManager conf;
    conf.load(path);
    const int family = static_cast<int>(conf.getValue("MISC:Sensor_ID", 0.0F));
    std::string text = fmt::format("{}\nsensor family {}\n", path, family);
    text += fmt::format("{:<10}  {:>10}  {:>10}  {:>10}  {:>10}\n", "size", "fx", "fy", "cx", "cy");
    bool any = false;
    for (const Section& section : kSections) {
        const oru::CameraParameters camera = oru::readCamera(section.name, conf);
        if (camera.fx > 0.0F && camera.fy > 0.0F) {
            any = true;
            text += fmt::format("{:<10}  {:>10.3f}  {:>10.3f}  {:>10.3f}  {:>10.3f}\n", section.size, camera.fx,
                                camera.fy, camera.cx, camera.cy);
        }
    }
    if (!conf.is_open || !any || family < 1 || family > 2) {
        return false;
    }
    oru::CameraParameters lens;
    oru::readCameraFullDisto("DISTO", conf, lens);
    text += "lens";
    for (std::size_t i = 0; i < kDistortionNames.size(); ++i) {
        text += fmt::format("{}{} {:.6g}", i % 4 == 0 ? "\n  " : "  ", kDistortionNames[i], lens.distortion[i]);
    }
    writeOutput(text + "\n");
    return true;
}

void printDifferences(const CalibrationText& file, uint32_t serial) {
    const CalibrationText factory = factoryCalibration(static_cast<int>(serial));
    if (factory.empty()) {
        writeOutput(fmt::format("camera {} is not attached: not compared with its factory calibration\n", serial));
        return;
    }
    const std::vector<CalibrationDifference> differences = compareCalibrations(file, factory);
    if (differences.empty()) {
        writeOutput("agrees with the camera's factory calibration\n");
        return;
    }
    writeOutput(fmt::format("differs from the camera's factory calibration in {}; --refresh replaces it\n",
                            counted(differences.size(), "value")));
    for (const CalibrationDifference& difference : differences) {
        writeOutput(fmt::format("  {:<20} {}, factory {}\n", difference.key, difference.file, difference.factory));
    }
}

bool fetch(const std::string& directory, uint32_t serial) {
    std::error_code ignored;  // a directory that cannot be made shows in the next line
    const bool made = std::filesystem::create_directories(directory, ignored);
    if (oru::downloadCalibFile(directory, static_cast<int>(serial))) {
        return true;
    }
    complain(
        "no calibration of camera {} could be stored in '{}': {}; attach the camera or set KORU_CALIB_URL, and check "
        "that "
        "the directory can be written.",
        serial, directory, codeName(oru::CALIBRATION_MISSING));
    if (made) {
        std::filesystem::remove(directory, ignored);
    }
    return false;
}

ExitStatus show(const CalibrationText& calibration, std::optional<uint32_t> serial) {
    std::error_code missing;
    if (!std::filesystem::is_regular_file(calibration.path, missing)) {
        complain("there is no file {}; name a calibration file, or a camera by --serial.", calibration.path);
        return EXIT_FAILED;
    }
    if (!printCalibration(calibration.path)) {
        complain("{} is not a calibration file; replace it, for instance by 'koruone calib --serial N --refresh'.",
                 calibration.path);
        return EXIT_FAILED;
    }
    if (serial) {
        printDifferences(calibration, *serial);
    }
    return EXIT_OK;
}

ExitStatus runOnFile(const CalibOptions& options) {
    const std::optional<uint32_t> serial = serialOfFile(options.file);
    if (options.refresh) {
        if (!serial) {
            complain("--refresh needs a file named SN<serial>.conf, or --serial.");
            return EXIT_USAGE;
        }
        const std::string directory = (std::filesystem::path(options.file).parent_path() / "").string();
        if (!fetch(directory.empty() ? "./" : directory, *serial)) {
            return EXIT_FAILED;
        }
    }
    return show(readCalibration(options.file), serial);
}

ExitStatus runOnSerial(const CalibOptions& options) {
    const std::string directory = options.settings.empty() ? defaultSettingsPath() : options.settings + "/";
    const int serial = static_cast<int>(*options.serial);
    CalibrationText calibration = loadCalibration(directory, serial);
    if (options.refresh || calibration.path.empty()) {
        if (!fetch(directory, *options.serial)) {
            return EXIT_FAILED;
        }
        calibration = loadCalibration(directory, serial);
    }
    return show(calibration, options.serial);
}

ExitStatus runCalib(const CalibOptions& options) {
    oru::CameraOne camera;
    (void)camera.getDeviceList();  // listing a camera makes its factory calibration known
    return options.serial ? runOnSerial(options) : runOnFile(options);
}

}  // namespace

void registerCalib(CLI::App& tool, ExitStatus& status) {
    auto options = std::make_shared<CalibOptions>();
    CLI::App* command = tool.add_subcommand("calib", "Show, compare or fetch a camera's calibration file");
    auto* which = command->add_option_group("which", "The calibration");
    which->add_option("file", options->file, "A calibration file")->type_name("FILE");
    addNumberOption(*which, "--serial", options->serial, uint32_t{1}, std::numeric_limits<uint32_t>::max(),
                    "The file of this camera, fetched when missing");
    which->require_option(1);
    command->add_option("--settings", options->settings, "Directory of the calibration files")->type_name("DIR");
    command->add_flag("--refresh", options->refresh, "Replace the file by the camera's factory calibration");
    command->callback([options, &status] { status = runCalib(*options); });
}

}  // namespace koruone
