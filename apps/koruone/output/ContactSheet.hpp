#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "koruone/output/png_file.hpp"

namespace koruone {

/// Small copies of images taken evenly over a run of unknown length, at most kMost of them, laid out on one sheet
/// with the frame's number under each.
class ContactSheet {
public:
    static constexpr std::size_t kMost = 24;

    /// Offers the next image of the run; kept when its turn fits.
    void offer(uint64_t frame, const ImageView& image);
    /// Writes the sheet. Without an image there is nothing to write and the result is true.
    bool write(const std::filesystem::path& path, PngEncoder& encoder, std::string& error) const;

private:
    struct Thumbnail {
        uint64_t frame = 0;
        std::vector<unsigned char> pixels;  ///< four bytes each
    };

    void keepEverySecond();
    [[nodiscard]] Thumbnail shrink(uint64_t frame, const ImageView& image) const;

    std::size_t thumbnailWidth = 0;
    std::size_t thumbnailHeight = 0;
    uint64_t offered = 0;
    uint64_t stride = 1;
    std::vector<Thumbnail> thumbnails;
};

}  // namespace koruone
