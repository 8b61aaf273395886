#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace koruone {

/// Rows of pixels in host memory: one byte of gray, or four bytes blue, green, red, unused.
struct PictureView {
    const unsigned char* pixels = nullptr;
    std::size_t width = 0;
    std::size_t height = 0;
    std::size_t step = 0;  ///< bytes from row to row
    bool gray = false;
};

/// Writes PNG files (gray or RGB, 8 bits), coded for speed. Keeps its buffers from picture to picture.
/// Threads: one at a time.
class PngEncoder {
public:
    PngEncoder();
    ~PngEncoder();
    PngEncoder(const PngEncoder&) = delete;
    PngEncoder& operator=(const PngEncoder&) = delete;

    /// On failure nothing is left and `error` says why.
    bool write(const std::filesystem::path& path, const PictureView& picture, std::string& error);

private:
    struct Compressor;

    void filterRows(const PictureView& picture);
    bool compress();
    bool writeFile(const std::filesystem::path& path, const PictureView& picture) const;

    std::unique_ptr<Compressor> compressor;
    std::vector<unsigned char> filtered;    ///< for each row the filter's number and the differences
    std::vector<unsigned char> compressed;  ///< grows to the largest picture
    std::size_t compressedSize = 0;
};

}  // namespace koruone
