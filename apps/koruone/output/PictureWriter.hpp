#pragma once

#include <filesystem>
#include <string>

#include "koruone/output/FrameTarget.hpp"
#include "koruone/output/picture_file.hpp"

namespace koruone {

/// A directory of pictures, each named by the time of its frame in nanoseconds. Takes views, not packed images.
class PictureWriter final : public FrameTarget {
public:
    explicit PictureWriter(PictureFormat pictureFormat) : pictures(pictureFormat) {}

    bool open(const std::string& path, oru::RecordedFile& source, const FrameFacts& facts) override;
    bool write(const ConvertedFrame& frame) override;
    bool finish() override { return true; }
    const std::string& error() const override { return failure; }

private:
    std::filesystem::path directory;
    PictureFile pictures;
    std::string failure;
};

}  // namespace koruone
