#include "koruone/camera/open_camera.hpp"

#include <filesystem>

#include "koruone/camera/control_access.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

void warnOfMissingDirectory(const InputOptions& options) {
    std::error_code error;
    if (!options.settings.empty() && !std::filesystem::is_directory(options.settings, error)) {
        complain("the settings directory '{}' does not exist; make it, so that the calibration can be kept there.",
                 options.settings);
    }
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
    return setControls(camera, options);
}

}  // namespace koruone
