#include <fmt/core.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <vector>

#include "koruone/camera/settings_directory.hpp"
#include "koruone/commands/commands.hpp"
#include "koruone/runs/calibration_run.hpp"
#include "oru/CameraOne.hpp"
#include "oru/calibration.hpp"
#include "shared/input_options.hpp"
#include "shared/json_output.hpp"
#include "shared/option_helpers.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

struct CalibOptions {
    std::string file;
    std::optional<uint32_t> serial;
    std::string settings;
    bool refresh = false;
    std::optional<CalibrationFormat> format;
    oru::Resolution size;
    std::string import;
    std::optional<int> model;
    bool overwrite = false;
    bool json = false;
};

const Choices<std::optional<CalibrationFormat>> kFormats{
    {"opencv", CalibrationFormat::OPENCV}, {"ros", CalibrationFormat::ROS}, {"kalibr", CalibrationFormat::KALIBR}};

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

/// The modes of all models, each section once, by size.
std::vector<oru::SensorMode> allModes() {
    std::vector<oru::SensorMode> modes;
    for (const oru::MODEL model : {oru::MODEL_MONO_3UM, oru::MODEL_MONO_2UM}) {
        const auto more = oru::sensorModes(model);
        modes.insert(modes.end(), more.begin(), more.end());
    }
    const auto size = [](const oru::SensorMode& mode) { return mode.width * mode.height; };
    std::sort(modes.begin(), modes.end(), [&](const auto& a, const auto& b) { return size(a) < size(b); });
    const auto same = [&](const auto& a, const auto& b) { return size(a) == size(b); };
    modes.erase(std::unique(modes.begin(), modes.end(), same), modes.end());
    return modes;
}

bool printCalibration(const oru::CalibrationFile& file) {
    std::string text = fmt::format("{}\nsensor family {}\n", file.path, oru::familyOf(file.model()));
    text += fmt::format("{:<10}  {:>10}  {:>10}  {:>10}  {:>10}\n", "size", "fx", "fy", "cx", "cy");
    std::optional<oru::Lens> lens;
    for (const oru::SensorMode& mode : allModes()) {
        const std::optional<oru::Lens> seen = file.lens(mode);
        if (seen) {
            lens = seen;
            text += fmt::format("{:<10}  {:>10.3f}  {:>10.3f}  {:>10.3f}  {:>10.3f}\n",
                                fmt::format("{}x{}", mode.width, mode.height), seen->fx, seen->fy, seen->cx, seen->cy);
        }
    }
    if (!lens || file.model() == oru::MODEL_UNKNOWN) {
        return false;
    }
    text += "lens";
    for (std::size_t i = 0; i < oru::kDistortionNames.size(); ++i) {
        text += fmt::format("{}{} {:.6g}", i % 4 == 0 ? "\n  " : "  ", oru::kDistortionNames[i], lens->distortion[i]);
    }
    writeOutput(text + "\n");
    return true;
}

void printDifferences(const oru::CalibrationFile& file, uint32_t serial) {
    const oru::CalibrationFile factory = oru::factoryCalibration(static_cast<int>(serial));
    if (factory.empty()) {
        writeOutput(fmt::format("camera {} is not attached: not compared with its factory calibration\n", serial));
        return;
    }
    const std::vector<oru::CalibrationDifference> differences = oru::compareCalibrations(file, factory);
    if (differences.empty()) {
        writeOutput("agrees with the camera's factory calibration\n");
        return;
    }
    writeOutput(fmt::format("differs from the camera's factory calibration in {}; --refresh replaces it\n",
                            counted(differences.size(), "value")));
    for (const oru::CalibrationDifference& difference : differences) {
        writeOutput(fmt::format("  {:<20} {}, factory {}\n", difference.key, difference.file, difference.factory));
    }
}

bool fetch(const std::string& directory, uint32_t serial) {
    std::error_code ignored;  // a directory that cannot be made shows in the next line
    const bool made = std::filesystem::create_directories(directory, ignored);
    if (oru::fetchCalibration(directory, static_cast<int>(serial))) {
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

/// Null for a file without a lens.
Json calibrationJson(const oru::CalibrationFile& file) {
    Json modes = Json::array();
    Json distortion = Json::object();
    for (const oru::SensorMode& mode : allModes()) {
        if (const std::optional<oru::Lens> lens = file.lens(mode)) {
            modes.push_back({{"width", mode.width},
                             {"height", mode.height},
                             {"fx", number(lens->fx)},
                             {"fy", number(lens->fy)},
                             {"cx", number(lens->cx)},
                             {"cy", number(lens->cy)}});
            for (std::size_t i = 0; i < oru::kDistortionNames.size(); ++i) {
                distortion[oru::kDistortionNames[i]] = number(lens->distortion[i]);
            }
        }
    }
    if (modes.empty() || file.model() == oru::MODEL_UNKNOWN) {
        return nullptr;
    }
    return {{"file", file.path},
            {"sensor_family", oru::familyOf(file.model())},
            {"modes", modes},
            {"distortion", distortion}};
}

/// What differs from the attached camera's own; null where it is not attached.
Json differencesJson(const oru::CalibrationFile& file, std::optional<uint32_t> serial) {
    const oru::CalibrationFile factory =
        serial ? oru::factoryCalibration(static_cast<int>(*serial)) : oru::CalibrationFile{};
    if (factory.empty()) {
        return nullptr;
    }
    Json differences = Json::array();
    for (const oru::CalibrationDifference& difference : oru::compareCalibrations(file, factory)) {
        differences.push_back({{"key", difference.key}, {"file", difference.file}, {"factory", difference.factory}});
    }
    return differences;
}

bool writeCalibrationJson(const oru::CalibrationFile& file, std::optional<uint32_t> serial) {
    Json object = calibrationJson(file);
    if (object.is_null()) {
        return false;
    }
    object["differs_from_factory"] = differencesJson(file, serial);
    writeJsonLine(object);
    return true;
}

ExitStatus show(const oru::CalibrationFile& calibration, std::optional<uint32_t> serial, bool json) {
    std::error_code missing;
    if (!std::filesystem::is_regular_file(calibration.path, missing)) {
        complain("there is no file {}; name a calibration file, or a camera by --serial.", calibration.path);
        return EXIT_FAILED;
    }
    if (!(json ? writeCalibrationJson(calibration, serial) : printCalibration(calibration))) {
        complain("{} is not a calibration file; replace it, for instance by 'koruone calib --serial N --refresh'.",
                 calibration.path);
        return EXIT_FAILED;
    }
    if (serial && !json) {
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
    const oru::CalibrationFile file = oru::readCalibration(options.file);
    return options.format ? printCalibrationAs(file, *options.format, options.size) : show(file, serial, options.json);
}

ExitStatus runOnSerial(const CalibOptions& options) {
    const std::string directory = options.settings.empty() ? defaultSettingsPath() : options.settings + "/";
    const int serial = static_cast<int>(*options.serial);
    if (!options.import.empty()) {
        const ImportOptions import{options.import, directory, *options.serial, options.model, options.overwrite};
        if (const ExitStatus imported = importCalibration(import); imported != EXIT_OK) {
            return imported;
        }
    }
    oru::CalibrationFile calibration = oru::findCalibration(directory, serial);
    if (options.refresh || calibration.path.empty()) {
        if (!fetch(directory, *options.serial)) {
            return EXIT_FAILED;
        }
        calibration = oru::findCalibration(directory, serial);
    }
    return options.format ? printCalibrationAs(calibration, *options.format, options.size)
                          : show(calibration, options.serial, options.json);
}

ExitStatus runCalib(const CalibOptions& options) {
    oru::CameraOne camera;
    (void)camera.getDeviceList();  // listing a camera makes its factory calibration known
    return options.serial ? runOnSerial(options) : runOnFile(options);
}

}  // namespace

void registerCalib(CLI::App& tool, ExitStatus& status) {
    auto options = std::make_shared<CalibOptions>();
    CLI::App* command = tool.add_subcommand("calib", "Show, compare, fetch or convert a camera's calibration file");
    auto* which = command->add_option_group("which", "The calibration");
    addPathOption(*which, "file", options->file, "A calibration file");
    addNumberOption(*which, "--serial", options->serial, uint32_t{1}, std::numeric_limits<uint32_t>::max(),
                    "The file of this camera, fetched when missing");
    which->require_option(1);
    addSettingsOption(*command, options->settings);
    auto* refresh =
        command->add_flag("--refresh", options->refresh, "Replace the file by the camera's factory calibration");
    auto* format = addChoiceOption(*command, "--format", options->format, kFormats,
                                   "Print it as another program reads it: opencv, ros or kalibr");
    addSizeOption(*command, "--size", options->size, "The size of image to print it for (default: the largest)")
        ->needs(format);
    auto* import =
        command->add_option("--import", options->import, "Make the camera's file of one of OpenCV, ROS or Kalibr")
            ->type_name("FILE")
            ->needs("--serial")
            ->excludes(refresh);
    addNumberOption(*command, "--model", options->model, 30, 31, "The camera's model, where nothing else tells it")
        ->needs(import);
    command->add_flag("--overwrite", options->overwrite, "Replace a file by the imported one")->needs(import);
    command->add_flag("--json", options->json, "Print one object")->excludes(format)->excludes(import);
    command->callback([options, command, &status] {
        if (!options->serial && command->count("--settings") > 0) {
            throw CLI::ValidationError("--settings", "a FILE is read where it lies; it goes with --serial");
        }
        status = runCalib(*options);
    });
}

}  // namespace koruone
