#pragma once

#include "oru/Lens.hpp"
#include "oru/types.hpp"

namespace oru::virtual_bus {

/// The lens of a camera of that model for which nothing else is configured.
[[nodiscard]] Lens defaultLens(MODEL model);

}  // namespace oru::virtual_bus
