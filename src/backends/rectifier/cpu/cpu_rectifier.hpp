#pragma once

#include <memory>

#include "backends/rectifier/reference/camera_views.hpp"
#include "collaborators/GpuRuntime.hpp"
#include "collaborators/MonoRectifier.hpp"

namespace oru {

/// A rectifier that works on the host. Device memory is reached through copies by `gpu`, which outlives the rectifier.
/// getView returns a rectifier::ViewResult; the view is black unless it was drawn. Views of four sizes are kept
/// prepared; another one takes the place of the one that was longest unused. `threads` share each view, the caller of
/// getView included; they run from setup to free, and small frames are drawn by the caller alone. Without a number:
/// half the processors, four at most.
[[nodiscard]] std::unique_ptr<MonoRectifier> makeCpuRectifier(GpuRuntime& gpu);
[[nodiscard]] std::unique_ptr<MonoRectifier> makeCpuRectifier(GpuRuntime& gpu, int threads);

}  // namespace oru
