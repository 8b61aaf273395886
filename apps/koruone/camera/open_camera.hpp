#pragma once

#include "oru/CameraOne.hpp"
#include "shared/exit_status.hpp"
#include "shared/input_options.hpp"

namespace koruone {

/// Adds the options that choose an input and set controls of it. `options` must outlive the parsing.
void addCameraOptions(CLI::App& command, InputOptions& options);

/// Opens the input that the options name and writes the controls that they name. A size that goes with another HDR mode
/// only is opened with that mode, and a calibration file that disagrees with the attached camera is pointed out, both
/// on standard error. Any other result than EXIT_OK: not open, and the reason has been said.
[[nodiscard]] ExitStatus openCamera(oru::CameraOne& camera, const InputOptions& options);

}  // namespace koruone
