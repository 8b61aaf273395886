#pragma once

#include <cstdint>

namespace oru::virtual_bus {

enum class PictureResult : int32_t {
    drawn,
    ended,   ///< there will be no more pictures
    failed,  ///< this picture is lost; the next may come
};

/// What stands in front of a virtual camera. Used by the capture thread alone.
class PictureSource {
public:
    virtual ~PictureSource() = default;

    /// Writes the picture of that moment as one YUYV block (BT.601 video range) of the mode's size.
    virtual PictureResult draw(uint64_t elapsed, unsigned char* pixels) = 0;
};

}  // namespace oru::virtual_bus
