#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "coding/av_pointers.hpp"

struct AVStream;

namespace oru::virtual_bus {

/// Decodes the first video track of one local file, image by image, on the caller's thread.
class FileDecoder {
public:
    /// False with the reason. Only regular files are opened.
    [[nodiscard]] bool open(const std::string& path, std::string& error);
    /// The next image into `frame`; false at the end or when nothing more can be decoded.
    [[nodiscard]] bool read(AVFrame& frame);
    [[nodiscard]] bool rewind();

    [[nodiscard]] double fps() const;
    /// Seconds of an image's time stamp; negative when it has none.
    [[nodiscard]] double secondsOf(const AVFrame& frame) const;

private:
    coding::AvInput formatContext;
    coding::AvPtr<AVCodecContext> codecContext;
    coding::AvPtr<AVPacket> packet;
    AVStream* stream = nullptr;
    bool draining = false;
};

/// Scales images to one size in YUYV, BT.601 video range.
class YuyvScaler {
public:
    YuyvScaler(int width, int height);

    /// False when the image's format cannot be converted.
    [[nodiscard]] bool scale(const AVFrame& frame);
    /// The image that was scaled last, one block.
    [[nodiscard]] const unsigned char* block() const { return pixels.data(); }

private:
    [[nodiscard]] bool prepare(const AVFrame& frame);

    int targetWidth;
    int targetHeight;
    int sourceWidth = 0;
    int sourceHeight = 0;
    int sourceFormat = -1;
    int sourceRange = -1;
    coding::AvPtr<SwsContext> scaler;
    std::vector<unsigned char> pixels;
};

}  // namespace oru::virtual_bus
