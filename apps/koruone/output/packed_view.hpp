#pragma once

#include "oru/Mat.hpp"

namespace koruone {

/// A view (gray, or blue, green, red, unused) as packed YUYV, BT.601 video range, the chroma of a pair of pixels that
/// of its left one. Both are in host memory, of one size and of an even width.
void packView(const oru::Mat& view, oru::Mat& packed);

}  // namespace koruone
