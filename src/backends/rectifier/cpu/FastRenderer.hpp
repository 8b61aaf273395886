#pragma once

#include <memory>
#include <vector>

#include "backends/rectifier/cpu/RowPool.hpp"
#include "backends/rectifier/cpu/rectify_kernel.hpp"
#include "backends/rectifier/geometry/mesh_map.hpp"
#include "backends/rectifier/reference/reference_renderer.hpp"

namespace oru::rectifier {

/// Draws views of one size with the vector kernels: what ReferenceRenderer draws, within two levels. Nothing is
/// allocated after the first rectified and the first unrectified view. One thread at a time; the pool outlives the
/// renderer.
class FastRenderer {
public:
    /// `view` is not larger than the source.
    FastRenderer(const ViewGeometry& geometry, Size view, RowPool& pool);

    /// `frame` is as large as the source.
    void draw(const YuyvFrame& frame, bool rectified, const ViewTarget& target);

private:
    YuyvFrame reducedFrame(const YuyvFrame& frame);
    void prepareMesh(float chromaSiting);

    ViewGeometry geometry;
    Size view;
    RowPool& pool;
    bool alone;  // too small to be worth waking the pool
    Reducer reducer;
    std::vector<unsigned char> reduced;
    std::vector<std::vector<std::uint16_t>> columnSums;  // of each thread
    std::unique_ptr<MeshMap> mesh;
    std::vector<TileScratch> scratch;  // of each thread
};

}  // namespace oru::rectifier
