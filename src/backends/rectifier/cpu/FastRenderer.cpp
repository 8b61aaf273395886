#include "backends/rectifier/cpu/FastRenderer.hpp"

#include "backends/rectifier/cpu/convert_kernel.hpp"
#include "backends/rectifier/cpu/halve_kernel.hpp"

namespace oru::rectifier {
namespace {

constexpr int kBlockRows = 32;  // a multiple of the tiles' height
constexpr int kPixelsWorthSharing = 1000 * 1000;
constexpr std::size_t kBytesWorthStreaming = 2U << 20;

bool isHalf(Size source, Size view) {
    return source.width == 2 * view.width && source.height == 2 * view.height && source.width % 4 == 0;
}

}  // namespace

FastRenderer::FastRenderer(const ViewGeometry& viewGeometry, Size viewSize, RowPool& rowPool)
    : geometry(viewGeometry),
      view(viewSize),
      pool(rowPool),
      alone(geometry.source.width * geometry.source.height < kPixelsWorthSharing),
      reducer(geometry.source, view) {
    if (view != geometry.source) {
        reduced.resize(reducer.bytes());
    }
    if (view != geometry.source && !isHalf(geometry.source, view)) {
        columnSums.resize(static_cast<std::size_t>(pool.threads()), std::vector<std::uint16_t>(reducer.scratchSize()));
    }
}

void FastRenderer::draw(const YuyvFrame& frame, bool rectified, const ViewTarget& target) {
    if (!rectified && target.gray && !geometry.flipped && isHalf(geometry.source, view)) {
        pool.run(view.height, kBlockRows, alone,
                 [&](int first, int end, int) { halveLumaRows(frame, target.pixels, target.step, first, end); });
        return;
    }
    const YuyvFrame image = view == geometry.source ? frame : reducedFrame(frame);
    if (!rectified) {
        // A smaller view comes from a reduced image in the caches, and fits there itself.
        const bool streaming =
            view == geometry.source && target.step * static_cast<std::size_t>(target.height) >= kBytesWorthStreaming;
        pool.run(view.height, kBlockRows, alone, [&](int first, int end, int) {
            drawUnrectifiedRows(image, target, geometry.flipped, streaming, first, end);
        });
        return;
    }
    prepareMesh(image.chroma_siting);
    pool.run(view.height, kBlockRows, alone, [&](int first, int end, int thread) {
        drawRectifiedRows(*mesh, image, target, first, end, scratch[static_cast<std::size_t>(thread)]);
    });
}

YuyvFrame FastRenderer::reducedFrame(const YuyvFrame& frame) {
    pool.run(view.height, kBlockRows, alone, [&](int first, int end, int thread) {
        if (columnSums.empty()) {
            halveRows(frame, reduced.data(), reducer.step(), first, end);
        } else {
            reducer.reduceRows(frame, reduced.data(), first, end, columnSums[static_cast<std::size_t>(thread)].data());
        }
    });
    return {reduced.data(), reducer.step(), view.width, view.height, reducer.chromaSiting(frame.chroma_siting)};
}

void FastRenderer::prepareMesh(float chromaSiting) {
    if (mesh != nullptr) {
        return;
    }
    const ViewMap map(geometry.lens, geometry.rectified, geometry.source, view, geometry.flipped);
    mesh = std::make_unique<MeshMap>(map, view, chromaSiting, hasTileKernel());
    scratch.resize(static_cast<std::size_t>(pool.threads()), TileScratch(*mesh));
}

}  // namespace oru::rectifier
