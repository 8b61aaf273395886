#include "koruone/runs/calibration_run.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <vector>

#include "shared/report.hpp"

namespace koruone {
namespace {

constexpr std::array<oru::MODEL, 2> kModels{oru::MODEL_MONO_3UM, oru::MODEL_MONO_2UM};

std::string sizeText(const oru::Resolution& size) {
    return fmt::format("{}x{}", size.width, size.height);
}

const oru::SensorMode* modeOf(oru::MODEL model, const oru::Resolution& size) {
    return oru::findMode(model, static_cast<int>(size.width), static_cast<int>(size.height));
}

/// The lens of the whole sensor, from that of one size: the inverse of modeLens, which only scales and moves.
oru::Lens sensorLens(oru::MODEL model, const oru::Lens& lens, const oru::SensorMode& mode) {
    const oru::Lens unit = oru::modeLens(model, {1, 1, 0, 0, {}}, mode);
    return {lens.fx / unit.fx, lens.fy / unit.fy, (lens.cx - unit.cx) / unit.fx, (lens.cy - unit.cy) / unit.fy,
            lens.distortion};
}

/// What the application said, else what the camera or its present file says, else the only one with that size.
oru::MODEL modelFor(const ImportOptions& options, const oru::Resolution& size) {
    if (options.model) {
        return static_cast<oru::MODEL>(*options.model);
    }
    const int serial = static_cast<int>(options.serial);
    for (const oru::CalibrationFile& known :
         {oru::factoryCalibration(serial), oru::findCalibration(options.directory, serial)}) {
        if (known.model() != oru::MODEL_UNKNOWN) {
            return known.model();
        }
    }
    std::vector<oru::MODEL> possible;
    std::copy_if(kModels.begin(), kModels.end(), std::back_inserter(possible),
                 [&](oru::MODEL model) { return modeOf(model, size) != nullptr; });
    return possible.size() == 1 ? possible.front() : oru::MODEL_UNKNOWN;
}

/// The text of the camera's file, which says where it comes from.
std::string importedText(oru::MODEL model, const oru::Lens& sensor, const std::string& from) {
    std::string maker = "imported from " + std::filesystem::path(from).filename().string();
    std::replace_if(
        maker.begin(), maker.end(), [](unsigned char c) { return c < ' '; }, '?');
    std::string text = oru::calibrationText(model, sensor);
    const std::string head = "[MISC]\n";
    return text.insert(text.find(head) + head.size(), fmt::format("{} = {}\n", oru::kCalibrationMakerKey, maker));
}

}  // namespace

ExitStatus printCalibrationAs(const oru::CalibrationFile& file, CalibrationFormat format, const oru::Resolution& size) {
    const auto modes = oru::sensorModes(file.model());
    const auto wanted = [&](const oru::SensorMode& mode) {
        const oru::Resolution own{static_cast<uint64_t>(mode.width), static_cast<uint64_t>(mode.height)};
        return (size.area() == 0 || own == size) && file.lens(mode).has_value();
    };
    const auto mode = std::find_if(modes.begin(), modes.end(), wanted);
    if (mode == modes.end()) {
        complain("{} has no calibration {}.", file.path,
                 size.area() == 0 ? "of any size" : "for images of " + sizeText(size));
        return EXIT_FAILED;
    }
    const SizedLens camera{*file.lens(*mode),
                           {static_cast<uint64_t>(mode->width), static_cast<uint64_t>(mode->height)}};
    const auto text = writeCalibrationAs(format, camera, std::filesystem::path(file.path).stem().string());
    if (!text) {
        complain("{} holds no usable lens.", file.path);
        return EXIT_FAILED;
    }
    if (text->fitted_within > 0) {
        complain(
            "the format has fewer coefficients than this lens: the closest that it can say is within {:.3f} pixels.",
            text->fitted_within);
    }
    writeOutput(text->text);
    return EXIT_OK;
}

ExitStatus importCalibration(const ImportOptions& options) {
    std::string error;
    const std::optional<SizedLens> camera = readForeignCalibration(options.from, error);
    if (!camera) {
        complain("cannot import {}: {}.", options.from, error);
        return EXIT_FAILED;
    }
    const oru::MODEL model = modelFor(options, camera->size);
    const oru::SensorMode* mode = modeOf(model, camera->size);
    if (mode == nullptr) {
        complain("cannot import {}: {}.", options.from,
                 model == oru::MODEL_UNKNOWN
                     ? "the camera is not known here; name its model by --model"
                     : fmt::format("model {} has no images of {}", static_cast<int>(model), sizeText(camera->size)));
        return EXIT_FAILED;
    }
    const std::string path = fmt::format("{}SN{}.conf", options.directory, options.serial);
    std::error_code ignored;
    if (!options.overwrite && std::filesystem::exists(path, ignored)) {
        complain("{} exists; --overwrite replaces it.", path);
        return EXIT_FAILED;
    }
    std::filesystem::create_directories(options.directory, ignored);
    const std::string text = importedText(model, sensorLens(model, camera->lens, *mode), options.from);
    const std::string defect = oru::writeCalibration(path, text, static_cast<int>(options.serial));
    if (!defect.empty()) {
        complain("cannot write {}: {}.", path, defect);
        return EXIT_FAILED;
    }
    return EXIT_OK;
}

}  // namespace koruone
