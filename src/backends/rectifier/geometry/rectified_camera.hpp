#pragma once

#include "backends/rectifier/geometry/positions.hpp"
#include "oru/Lens.hpp"

namespace oru::rectifier {

struct Size {
    int width;
    int height;
    bool operator==(const Size&) const = default;
};

/// The pinhole camera of the rectified view: square pixels, and the widest field of view for which every pixel of the
/// view sees the image (no empty border). The principal point lies where the four borders are used evenly.
/// `lens` is usable, `size` at least 2 by 2. A lens that bends back on itself is used up to where it does.
/// Returns fx = fy = 0 when no view of the lens is free of empty pixels.
[[nodiscard]] Intrinsics rectifiedCamera(const Lens& lens, Size size);

}  // namespace oru::rectifier
