#pragma once

#include <cstdint>
#include <vector>

#include "backends/rectifier/geometry/mesh_map.hpp"
#include "backends/rectifier/reference/yuyv_frame.hpp"

namespace oru::rectifier {

/// Whether this processor has the vector instructions that the tiles other than Plain ones need.
[[nodiscard]] bool hasTileKernel();

/// Working memory of one thread for the rows of one mesh.
class TileScratch {
public:
    explicit TileScratch(const MeshMap& mesh);

    // Positions of the nodes on the current row.
    std::vector<std::int32_t> x;
    std::vector<std::int32_t> y;
    // Of each window, where it begins in the image; and in 16-bit values where its group lies in it and how it
    // advances.
    std::vector<std::int32_t> offsets;
    std::vector<std::uint32_t> positions;
    std::vector<std::uint32_t> increments;
};

/// Draws rows [firstRow, endRow) of a rectified view. `mesh` is made for the size of view and frame, with
/// `fast` = hasTileKernel(). Threads: any, each with its own scratch.
void drawRectifiedRows(const MeshMap& mesh, const YuyvFrame& frame, const ViewTarget& target, int firstRow, int endRow,
                       TileScratch& scratch);

}  // namespace oru::rectifier
