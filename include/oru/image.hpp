#pragma once

#include <cstddef>
#include <cstdint>

namespace oru {

/// Nanoseconds since the Unix epoch, on the system clock.
using Timestamp = uint64_t;

/// What retrieveImage delivers: bit 1 selects gray, bit 2 the image without rectification.
enum VIEW : int32_t {
    RECTIFIED = 0,         ///< U8_C4, blue, green, red, 255
    RECTIFIED_GRAY = 2,    ///< U8_C1, luma
    UNRECTIFIED = 4,       ///< U8_C4
    UNRECTIFIED_GRAY = 6,  ///< U8_C1
};

/// Where pixels lie, as a set of bits.
enum MEM : int32_t {
    CPU = 1,
    GPU = 2,
    CPU_AND_GPU = 3,
};

/// Element type of a Mat.
enum MAT_TYPE : int32_t {
    U8_C1 = 4,  ///< one byte a pixel
    U8_C2 = 5,  ///< two bytes a pixel: the raw YUYV image
    U8_C4 = 7,  ///< four bytes a pixel
};

/// Size in pixels. A size whose product is 0 asks for the camera's own size.
struct Resolution {
    uint64_t width = 0;
    uint64_t height = 0;

    [[nodiscard]] uint64_t area() const { return width * height; }
    friend bool operator==(const Resolution&, const Resolution&) = default;
};

/// The camera's named sizes; `cameraResolution` in tables/tables.hpp gives width and height.
enum RESOLUTION : int32_t {
    HD2160,  ///< 3840 x 2160
    HD1800,  ///< 3200 x 1800
    HD1242,  ///< 2208 x 1242
    HD1080,  ///< 1920 x 1080
    HD1200,  ///< 1920 x 1200
    HD720,   ///< 1280 x 720
    HD600,   ///< 960 x 600
    HD376,   ///< 672 x 376
    AUTO,    ///< the default of the input
    RESOLUTION_LAST,
};

}  // namespace oru
