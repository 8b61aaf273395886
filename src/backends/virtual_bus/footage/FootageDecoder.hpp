#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace oru::virtual_bus {

/// What the first image of a file says.
struct ImageFileFacts {
    int width = 0;
    int height = 0;
    double fps = 0.0;
};

struct ListedImage {
    uint64_t time_ns = 0;
    std::string path;
};

/// The size that images must have, and the size that they are scaled to.
struct ImageScaling {
    int source_width = 0;
    int source_height = 0;
    int width = 0;
    int height = 0;
};

/// Images of footage in their order with their times. One thread at a time.
class FootageReader {
public:
    virtual ~FootageReader() = default;

    /// The time of the next image since the first, nanoseconds; false at the end. Repeats its answer until read() or
    /// skip().
    virtual bool next(uint64_t& time) = 0;
    /// Takes the announced image as one YUYV block (BT.601 video range) of the wanted size, valid until the next call;
    /// null when it cannot be decoded or converted, or has another size than it must.
    virtual const unsigned char* read() = 0;
    /// Passes over the announced image.
    virtual void skip() = 0;
    virtual bool rewind() = 0;
};

/// Turns image and video files into images. Only regular files are opened. Threads: any.
class FootageDecoder {
public:
    virtual ~FootageDecoder() = default;

    /// Decodes the first image of a file; false with the reason.
    [[nodiscard]] virtual bool probe(const std::string& path, ImageFileFacts& facts, std::string& error) = 0;
    /// Null with the reason.
    [[nodiscard]] virtual std::unique_ptr<FootageReader> openImages(std::vector<ListedImage> images,
                                                                    const ImageScaling& scaling,
                                                                    std::string& error) = 0;
    /// The first video track of a file; with 0 for `fps` at its own times. Null with the reason.
    [[nodiscard]] virtual std::unique_ptr<FootageReader> openVideo(const std::string& path, double fps,
                                                                   const ImageScaling& scaling, std::string& error) = 0;
};

/// Decodes whatever the coding library of this system decodes.
[[nodiscard]] std::unique_ptr<FootageDecoder> makeFootageDecoder();

}  // namespace oru::virtual_bus
