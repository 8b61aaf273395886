#pragma once

#include <cstddef>

#include "backends/rectifier/geometry/positions.hpp"
#include "backends/rectifier/reference/yuyv_frame.hpp"

namespace oru::rectifier {

// The plain definition of every view, one pixel at a time: what the fast kernels are measured against, and what draws
// the places that they leave out. Y, U and V are interpolated between the four nearest samples of each, a position in
// the outer half pixel of the image takes the border's value, anything farther out is black.
// All functions are pure; any thread.

struct Yuv {
    float y;
    float u;
    float v;
};

struct Bgr {
    float b;
    float g;
    float r;
};

[[nodiscard]] bool insideImage(const YuyvFrame& frame, SourcePosition position);

/// The position is inside the image.
[[nodiscard]] float sampleLuma(const YuyvFrame& frame, SourcePosition position);
[[nodiscard]] Yuv sampleYuv(const YuyvFrame& frame, SourcePosition position);

/// BT.601 video range to full-range RGB, each clamped to 0..255 and not rounded.
[[nodiscard]] Bgr toBgr(Yuv yuv);

/// Draws `count` neighbouring pixels of a row: BGRA with alpha 255, or gray, which is luma as it is stored.
void drawBgra(const YuyvFrame& frame, const SourcePosition* positions, std::size_t count, unsigned char* out);
void drawGray(const YuyvFrame& frame, const SourcePosition* positions, std::size_t count, unsigned char* out);

/// Fills the whole target with black.
void drawBlack(const ViewTarget& target);

}  // namespace oru::rectifier
