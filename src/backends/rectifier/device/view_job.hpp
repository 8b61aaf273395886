#pragma once

#include "backends/rectifier/device/view_pixel.hpp"
#include "backends/rectifier/reference/reference_renderer.hpp"

namespace oru::rectifier {

/// What the pixel code needs for the views of one size; image and target are still to be named.
[[nodiscard]] ViewJob viewJob(const ViewGeometry& geometry, Size view);

/// A black view: an unrectified one of an empty image.
[[nodiscard]] ViewJob blackJob(Size view, unsigned char* pixels);

/// YUYV rows without padding, of an even width or with half a pair at the end; aligned to 4 bytes.
[[nodiscard]] PairImage pairImage(const void* pixels, Size size, float chromaSiting);

}  // namespace oru::rectifier
