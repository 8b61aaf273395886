#pragma once

#include <cstdint>

namespace oru::virtual_bus {

enum class PictureResult : int32_t {
    drawn,
    ended,   ///< there will be no more pictures
    failed,  ///< this picture is lost; the next may come
};

/// Receives the rows of a picture in order, as they are drawn, and may change them.
class RowSink {
public:
    virtual ~RowSink() = default;

    /// `pixels` is the start of row `first` of a YUYV picture.
    virtual void rows(unsigned char* pixels, int first, int count) = 0;
};

/// What stands in front of a virtual camera. Used by the capture thread alone.
class PictureSource {
public:
    virtual ~PictureSource() = default;

    /// Writes the picture of that moment as one YUYV block (BT.601 video range) of the mode's size and
    /// passes its rows to the sink.
    virtual PictureResult draw(uint64_t elapsed, unsigned char* pixels, RowSink& sink) = 0;
};

}  // namespace oru::virtual_bus
