#include "koruone/output/PictureWriter.hpp"

#include <fmt/core.h>

#include <algorithm>

#include "koruone/output/output_file.hpp"

namespace koruone {
namespace {

/// A time in nanoseconds with the ending of a picture.
bool isTimedPicture(const std::filesystem::path& file) {
    const std::string stem = file.stem().string();
    const bool ending = file.extension() == ".png" || file.extension() == ".jpg";
    return ending && !stem.empty() && stem.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

bool PictureWriter::open(const std::string& path, oru::RecordedFile& /*source*/, const FrameFacts& /*facts*/) {
    directory = path;
    if (!makeDirectory(directory, failure)) {
        return false;
    }
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
        if (isTimedPicture(entry.path()) && !std::filesystem::remove(entry.path(), error)) {
            failure = fmt::format("cannot remove {}: {}", entry.path().string(), error.message());
            return false;
        }
    }
    return true;
}

bool PictureWriter::write(const ConvertedFrame& frame) {
    return pictures.write(directory / std::to_string(frame.image.timestamp), viewOf(frame.image), failure);
}

}  // namespace koruone
