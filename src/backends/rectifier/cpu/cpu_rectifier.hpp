#pragma once

#include <memory>

#include "collaborators/GpuRuntime.hpp"
#include "collaborators/MonoRectifier.hpp"

namespace oru {

/// A rectifier that works on the host. Device memory is reached through copies by `gpu`, which outlives the rectifier.
/// getView returns 0, or one of the results below with the view black. Views of four sizes are kept prepared; another
/// one takes the place of the one that was longest unused.
/// `threads` share each view, the caller of getView included; they run from setup to free, and small frames are drawn
/// by the caller alone. Without a number: half the processors, four at most.
[[nodiscard]] std::unique_ptr<MonoRectifier> makeCpuRectifier(GpuRuntime& gpu);
[[nodiscard]] std::unique_ptr<MonoRectifier> makeCpuRectifier(GpuRuntime& gpu, int threads);

namespace rectifier {

enum ViewResult : int {
    VIEW_DRAWN = 0,
    VIEW_WITHOUT_FRAME = 1,  ///< no frame was noted since setup, or it held no YUYV pixels in host memory
    VIEW_OF_OTHER_SIZE = 2,  ///< the frame is not of the size that was set up
    VIEW_NOT_SUPPORTED = 3,  ///< unknown view, or a size of 0 or above that of the frame
    VIEW_WITHOUT_CAMERA =
        4,  ///< rectified view without usable intrinsics (never set up, or the lens shows no full view)
    VIEW_WITHOUT_MEMORY = 5,  ///< the destination could not be given the memory asked for
};

}  // namespace rectifier
}  // namespace oru
