#pragma once

#include <cstddef>

#include "utils/private_export.hpp"

namespace oru {

/// Three 8-bit planes of one image, borrowed for the length of a call. Steps are bytes from row to row.
/// 4:2:2 has chroma planes of width / 2 by height; 4:2:0 of width / 2 by (height + 1) / 2.
struct YuvPlanes {
    unsigned char* y;
    unsigned char* u;
    unsigned char* v;
    std::size_t y_step;
    std::size_t u_step;
    std::size_t v_step;
};

/// The same for reading.
struct ConstYuvPlanes {
    const unsigned char* y;
    const unsigned char* u;
    const unsigned char* v;
    std::size_t y_step;
    std::size_t u_step;
    std::size_t v_step;
};

// Layout changes between the camera's packed YUYV (bytes Y0 U Y1 V, two a pixel) and the planar forms that coders
// want. Values are copied, the range is not touched. Only 4:2:0 loses anything: two rows share their rounded mean
// chroma on the way out (the last row of an odd height stands alone), and both rows get it on the way back.
//
// Width is even (every camera mode is; an odd last column is left alone); height is any. Steps may be larger than a
// row, pointers need no alignment, source and destination must not overlap. Nothing is allocated and nothing fails.
// Threads: any; rows may be split between threads at even row numbers.

ORU_PRIVATE_API void yuyvToI422(const unsigned char* yuyv, std::size_t yuyvStep, const YuvPlanes& planes,
                                std::size_t width, std::size_t height);
ORU_PRIVATE_API void yuyvToI420(const unsigned char* yuyv, std::size_t yuyvStep, const YuvPlanes& planes,
                                std::size_t width, std::size_t height);
ORU_PRIVATE_API void i422ToYuyv(const ConstYuvPlanes& planes, unsigned char* yuyv, std::size_t yuyvStep,
                                std::size_t width, std::size_t height);
ORU_PRIVATE_API void i420ToYuyv(const ConstYuvPlanes& planes, unsigned char* yuyv, std::size_t yuyvStep,
                                std::size_t width, std::size_t height);

}  // namespace oru
