#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace koruone {

/// Rows of pixels in host memory: one byte of gray, or four bytes blue, green, red, unused.
struct PictureView {
    const unsigned char* pixels = nullptr;
    std::size_t width = 0;
    std::size_t height = 0;
    std::size_t step = 0;  ///< bytes from row to row
    bool gray = false;
};

/// Writes a PNG file (gray or RGB, 8 bits), coded for speed. On failure nothing is left and `error` says why.
bool writePng(const std::filesystem::path& path, const PictureView& picture, std::string& error);

}  // namespace koruone
