#include "backends/rectifier/reference/reference_renderer.hpp"

#include "backends/rectifier/reference/reference_view.hpp"

namespace oru::rectifier {

ReferenceRenderer::ReferenceRenderer(const ViewGeometry& viewGeometry, Size viewSize)
    : geometry(viewGeometry),
      view(viewSize),
      reducer(geometry.source, view),
      unrectifiedPositions(static_cast<std::size_t>(view.width)) {}

void ReferenceRenderer::draw(const YuyvFrame& frame, bool rectified, const ViewTarget& target) {
    const YuyvFrame image = view == geometry.source ? frame : reducedFrame(frame);
    for (int row = 0; row < view.height; ++row) {
        const SourcePosition* positions = positionsOf(rectified, row);
        if (target.gray) {
            drawGray(image, positions, unrectifiedPositions.size(), target.row(row));
        } else {
            drawBgra(image, positions, unrectifiedPositions.size(), target.row(row));
        }
    }
}

YuyvFrame ReferenceRenderer::reducedFrame(const YuyvFrame& frame) {
    columnSums.resize(reducer.scratchSize());
    reduced.resize(reducer.bytes());
    reducer.reduceRows(frame, reduced.data(), 0, view.height, columnSums.data());
    return {reduced.data(), reducer.step(), view.width, view.height, reducer.chromaSiting(frame.chroma_siting)};
}

const SourcePosition* ReferenceRenderer::positionsOf(bool rectified, int row) {
    if (!rectified) {
        for (int u = 0; u < view.width; ++u) {
            unrectifiedPositions[static_cast<std::size_t>(u)] = {
                static_cast<float>(geometry.flipped ? view.width - 1 - u : u),
                static_cast<float>(geometry.flipped ? view.height - 1 - row : row)};
        }
        return unrectifiedPositions.data();
    }
    if (rectifiedPositions.empty()) {
        const ViewMap map(geometry.lens, geometry.rectified, geometry.source, view, geometry.flipped);
        rectifiedPositions.reserve(static_cast<std::size_t>(view.width) * static_cast<std::size_t>(view.height));
        for (int v = 0; v < view.height; ++v) {
            for (int u = 0; u < view.width; ++u) {
                rectifiedPositions.push_back(map.sampleAt(u, v));
            }
        }
    }
    return rectifiedPositions.data() + static_cast<std::ptrdiff_t>(row) * view.width;
}

}  // namespace oru::rectifier
