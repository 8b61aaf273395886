#pragma once

#include <cstddef>
#include <string>

#include "koruone/output/png_file.hpp"

namespace koruone {

/// Cells of a terminal.
struct TerminalSize {
    std::size_t columns = 80;
    std::size_t rows = 24;
};
/// Of the terminal behind a descriptor; the usual size where it is none.
TerminalSize terminalSize(int descriptor);

/// A colour view as text: each cell is an upper half block with the colour of one pixel as its own and of the pixel
/// below as its background, 24 bits each. A line for every two rows of pixels.
std::string halfBlocks(const ImageView& image);

}  // namespace koruone
