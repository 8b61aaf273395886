#pragma once

#include <vector>

#include "backends/rectifier/geometry/ViewMap.hpp"
#include "backends/rectifier/reference/reducer.hpp"
#include "backends/rectifier/reference/yuyv_frame.hpp"

namespace oru::rectifier {

/// What views of one size need to know about the camera.
struct ViewGeometry {
    Lens lens;
    Intrinsics rectified;
    Size source;
    bool flipped;
};

/// Draws views of one size pixel by pixel: the definition that fast renderers are measured against.
/// One thread at a time.
class ReferenceRenderer {
public:
    /// `view` is not larger than the source.
    ReferenceRenderer(const ViewGeometry& geometry, Size view);

    void draw(const YuyvFrame& frame, bool rectified, const ViewTarget& target);

private:
    YuyvFrame reducedFrame(const YuyvFrame& frame);
    const SourcePosition* positionsOf(bool rectified, int row);

    ViewGeometry geometry;
    Size view;
    Reducer reducer;
    std::vector<std::uint16_t> columnSums;
    std::vector<unsigned char> reduced;
    std::vector<SourcePosition> rectifiedPositions;
    std::vector<SourcePosition> unrectifiedPositions;  // of one row
};

}  // namespace oru::rectifier
