#pragma once

#include <string>

#include "oru/types.hpp"

namespace oru {

/// The sizes of a model, the largest first, as in "HD1200 (1920x1200), HD1080 (1920x1080)"; empty for one without.
std::string offeredSizes(MODEL model);

}  // namespace oru
