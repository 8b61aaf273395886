#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace koruone {

/// Rows of pixels in host memory: one byte of gray, or four bytes blue, green, red, unused.
struct ImageView {
    const unsigned char* pixels = nullptr;
    std::size_t width = 0;
    std::size_t height = 0;
    std::size_t step = 0;  ///< bytes from row to row
    bool gray = false;
};

/// Writes PNG files (gray or RGB, 8 bits), coded for speed. Keeps its buffers from image to image.
/// Threads: one at a time.
class PngEncoder {
public:
    PngEncoder();
    ~PngEncoder();
    PngEncoder(const PngEncoder&) = delete;
    PngEncoder& operator=(const PngEncoder&) = delete;

    /// On failure nothing is left and `error` says why.
    bool write(const std::filesystem::path& path, const ImageView& image, std::string& error);

private:
    struct Compressor;

    void filterRows(const ImageView& image);
    bool compress();
    bool writeFile(const std::filesystem::path& path, const ImageView& image) const;

    std::unique_ptr<Compressor> compressor;
    std::vector<unsigned char> filtered;    ///< for each row the filter's number and the differences
    std::vector<unsigned char> compressed;  ///< grows to the largest image
    std::size_t compressedSize = 0;
};

}  // namespace koruone
