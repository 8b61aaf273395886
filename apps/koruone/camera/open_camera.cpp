#include "koruone/camera/open_camera.hpp"

#include <filesystem>

#include "koruone/camera/control_access.hpp"
#include "oru/calibration.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

constexpr std::size_t kDifferencesShown = 3;

void warnOfMissingDirectory(const InputOptions& options) {
    std::error_code error;
    if (!options.settings.empty() && !std::filesystem::is_directory(options.settings, error)) {
        complain("the settings directory '{}' does not exist; make it, so that the calibration can be kept there.",
                 options.settings);
    }
}

void warnOfOtherCalibration(oru::CameraOne& camera) {
    const oru::CameraDescription information = camera.getCameraInformation({});
    if (information.input_type != oru::GMSL) {
        return;
    }
    const std::string directory = camera.getInitParameters().settings_path.get();
    const oru::CalibrationFile file = oru::findCalibration(directory, information.serial_number);
    const oru::CalibrationFile factory = oru::factoryCalibration(information.serial_number);
    if (file.empty() || factory.empty()) {
        return;
    }
    const std::vector<oru::CalibrationDifference> differences = oru::compareCalibrations(file, factory);
    if (differences.empty()) {
        return;
    }
    std::string shown;
    for (std::size_t i = 0; i < differences.size() && i < kDifferencesShown; ++i) {
        shown += fmt::format("{}{} {} instead of {}", i == 0 ? "" : ", ", differences[i].key, differences[i].file,
                             differences[i].factory);
    }
    complain(
        "the calibration file {} disagrees with the camera's factory calibration in {} ({}{}); to replace it, "
        "run 'koruone calib --serial {} --refresh'.",
        file.path, counted(differences.size(), "value"), shown, differences.size() > kDifferencesShown ? ", ..." : "",
        information.serial_number);
}

bool setControls(oru::CameraOne& camera, const InputOptions& options) {
    for (const std::string& text : options.controls) {
        std::string error;
        const auto assignment = parseAssignment(text, error);
        if (!assignment || !setControl(camera, *assignment->control, assignment->value)) {
            return false;
        }
    }
    return true;
}

}  // namespace

void addCameraOptions(CLI::App& command, InputOptions& options) {
    addInputOptions(command, options, [](std::string& text) {
        std::string error;
        (void)parseAssignment(text, error);
        return error;
    });
}

bool openCamera(oru::CameraOne& camera, const InputOptions& options) {
    warnOfMissingDirectory(options);
    oru::ERROR_CODE code = camera.open(initParameters(options));
    if (code == oru::CONFIGURATION_ADJUSTED) {
        const oru::InitParametersOne adjusted = camera.getInitParameters();
        complain("{} at {} works only {} HDR; opening it so.", inputName(options),
                 resolutionName(adjusted.requested_resolution), adjusted.use_hdr ? "with" : "without");
        code = camera.open(adjusted);
    }
    if (code != oru::SUCCESS) {
        complain(code, "cannot open " + inputName(options), inputKind(options));
        return false;
    }
    warnOfOtherCalibration(camera);
    return setControls(camera, options);
}

}  // namespace koruone
