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

/// Images of footage in their order with their times. One thread at a time.
class FootageReader {
public:
    virtual ~FootageReader() = default;

    /// The time of the next image since the first, nanoseconds; false at the end. Repeats its answer until read().
    virtual bool next(uint64_t& time) = 0;
    /// Takes the announced image: null when it cannot be decoded. `wanted` false skips it.
    virtual const AVFrame* read(bool wanted) = 0;
    virtual bool rewind() = 0;
};

struct ListedImage {
    uint64_t time_ns = 0;
    std::string path;
};
[[nodiscard]] std::unique_ptr<FootageReader> makeImageReader(std::vector<ListedImage> images);
[[nodiscard]] std::unique_ptr<FootageReader> makeVideoReader(const std::string& path, double fps, std::string& error);

/// Scales images to one size in YUYV, BT.601 video range.
class YuyvScaler {
public:
    YuyvScaler(int width, int height);

    /// False when the image's format cannot be converted.
    [[nodiscard]] bool scale(const AVFrame& frame);
    [[nodiscard]] const unsigned char* row(int y) const {
        return pixels.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(targetWidth) * 2;
    }

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
