#pragma once

#include "backends/rectifier/reference/yuyv_frame.hpp"

namespace oru::rectifier {

/// Draws rows [firstRow, endRow) of a view without rectification, as large as the frame; turned by 180 degrees when
/// `flipped`. `streaming` writes past the caches, for views that are larger than them. Threads: any.
void drawUnrectifiedRows(const YuyvFrame& frame, const ViewTarget& target, bool flipped, bool streaming, int firstRow,
                         int endRow);

}  // namespace oru::rectifier
