#pragma once

#include <cstdint>

namespace oru::virtual_bus {

enum class ImageResult : int32_t {
    DRAWN,
    FAILED,  ///< this image is lost; the next may come
};

/// Receives the rows of an image in order, as they are drawn, and may change them.
class RowSink {
public:
    virtual ~RowSink() = default;

    /// `pixels` is the start of row `first` of a YUYV image.
    virtual void rows(unsigned char* pixels, int first, int count) = 0;
};

/// What stands in front of a virtual camera. Used by the capture thread alone: next(), then draw() or skip(), again and
/// again.
class ImageSource {
public:
    virtual ~ImageSource() = default;

    /// When the next image is due, in nanoseconds after the camera's start; false when there will be no more.
    virtual bool next(uint64_t& moment) = 0;
    /// Writes the announced image, taken at that moment, as one YUYV block (BT.601 video range) of the mode's size
    /// and passes its rows to the sink.
    virtual ImageResult draw(uint64_t moment, unsigned char* pixels, RowSink& sink) = 0;
    /// Gives the announced image up.
    virtual void skip() = 0;
    /// The nominal time between two images, nanoseconds.
    [[nodiscard]] virtual uint64_t period() const = 0;
    /// How late an image may be taken before it is given up, nanoseconds.
    [[nodiscard]] virtual uint64_t patience() const { return period(); }
};

}  // namespace oru::virtual_bus
