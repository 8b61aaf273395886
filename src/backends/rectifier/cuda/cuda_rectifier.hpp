#pragma once

#include <memory>

#include "collaborators/GpuRuntime.hpp"
#include "collaborators/MonoRectifier.hpp"

namespace oru {

/// A rectifier that works on the device of `gpu` (rectifier::makeDeviceRectifier), which is CUDA's and outlives it.
/// Null in a build without the CUDA toolkit.
[[nodiscard]] std::unique_ptr<MonoRectifier> makeCudaRectifier(GpuRuntime& gpu);

}  // namespace oru
