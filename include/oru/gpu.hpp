#pragma once

#include "oru/String.hpp"
#include "oru/export.hpp"

namespace oru {

/// The graphics processor that draws the views, in words for people; "none", and why, where the host draws them.
/// Threads: any.
ORU_API String gpuDescription();

}  // namespace oru
