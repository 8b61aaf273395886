#include "koruone/camera/open_camera.hpp"

#include <filesystem>

#include "koruone/camera/control_access.hpp"
#include "oru/RecordedFile.hpp"
#include "shared/recording_advice.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

ExitStatus checkSettingsDirectory(const InputOptions& options) {
    std::error_code error;
    if (options.settings.empty() || std::filesystem::is_directory(options.settings, error)) {
        return EXIT_OK;
    }
    if (std::filesystem::exists(options.settings, error)) {
        complain("--settings {} is a file; name the directory in which the calibration files lie.", options.settings);
        return EXIT_USAGE;
    }
    complain("the settings directory '{}' does not exist; make it, so that the calibration can be kept there.",
             options.settings);
    return EXIT_OK;
}

ExitStatus setControls(oru::CameraOne& camera, const InputOptions& options) {
    for (const std::string& text : options.controls) {
        std::string error;
        const auto assignment = parseAssignment(text, error);
        if (!assignment) {
            return EXIT_USAGE;
        }
        if (const ExitStatus set = setControl(camera, *assignment->control, assignment->value); set != EXIT_OK) {
            return set;
        }
    }
    return EXIT_OK;
}

ExitStatus complainNotOpen(oru::ERROR_CODE code, const InputOptions& options) {
    if (code == oru::RLX_FILE_UNREADABLE) {
        oru::RecordedFile recording;
        (void)recording.open(options.file);
        complainOfRecording(recording.condition(), options.file);
    } else {
        complain(code, "cannot open " + inputName(options), subjectOf(inputKind(options)));
    }
    return EXIT_FAILED;
}

}  // namespace

void addCameraOptions(CLI::App& command, InputOptions& options) {
    addInputOptions(command, options, [](std::string& text) {
        std::string error;
        (void)parseAssignment(text, error);
        return error;
    });
}

ExitStatus openCamera(oru::CameraOne& camera, const InputOptions& options) {
    if (const ExitStatus usable = checkSettingsDirectory(options); usable != EXIT_OK) {
        return usable;
    }
    oru::ERROR_CODE code = camera.open(initParameters(options));
    if (code == oru::CONFIGURATION_ADJUSTED) {
        const oru::InitParametersOne adjusted = camera.getInitParameters();
        complain("{} at {} works only {} HDR; opening it so.", inputName(options),
                 resolutionName(adjusted.requested_resolution), adjusted.use_hdr ? "with" : "without");
        code = camera.open(adjusted);
    }
    if (code != oru::SUCCESS) {
        return complainNotOpen(code, options);
    }
    return setControls(camera, options);
}

}  // namespace koruone
