#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "koruone/output/png_file.hpp"
#include "oru/Mat.hpp"

namespace koruone {

enum class PictureFormat { PNG, JPEG };

/// A gray or four-byte view in host memory.
ImageView viewOf(const oru::Mat& image);

/// A baseline JPEG file (ITU-T T.81) with the JFIF header, which means BT.601 in full range; chroma for every pixel.
std::vector<unsigned char> encodeJpeg(const ImageView& image);

/// Writes pictures of one format, with the ending that it has. Threads: one at a time.
class PictureFile {
public:
    explicit PictureFile(PictureFormat pictureFormat) : format(pictureFormat) {}

    /// `name` without an ending. On failure nothing is left and `error` says why.
    bool write(const std::filesystem::path& name, const ImageView& image, std::string& error);

private:
    PictureFormat format;
    PngEncoder png;
};

}  // namespace koruone
