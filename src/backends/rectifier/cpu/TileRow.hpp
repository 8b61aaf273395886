#pragma once

#include <cstddef>

namespace oru::rectifier {

/// One row of a run of tiles of one kind.
struct TileRow {
    const unsigned char* image;
    std::size_t step;
    int last_column;  // where the last window that fits begins
    int last_row;
    int siting;  // of chroma, in 1/65536 pixel
    int first_cell;
    int end_cell;
    std::ptrdiff_t prefetch;  // bytes from a sample to what will be sampled some rows later
};

}  // namespace oru::rectifier
