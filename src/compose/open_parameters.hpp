#pragma once

#include "oru/types.hpp"

namespace oru {

class CameraOneImpl;

/// False, with one Error line, for an id or a serial number that is no number or that no camera can have.
[[nodiscard]] bool canNameACamera(const InputType& input);

/// The parameters of an open camera as it runs: the rate, the resolution and the HDR mode of its input.
[[nodiscard]] InitParametersOne parametersInForce(CameraOneImpl& camera);

/// One Info line for each wish of the application that a live camera does not meet.
void logAdjustments(const InitParametersOne& asked, const InitParametersOne& inForce);

}  // namespace oru
