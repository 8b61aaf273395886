#pragma once

#include <cstdint>

#include "backends/stream/wire/ffmpeg.hpp"
#include "utils/yuv.hpp"

namespace oru::stream {

/// Between the camera's packed YUYV (one block, width * 2 bytes a row) and the coder's planar 4:2:0.
inline void packedToPlanar(const uint8_t* packed, AVFrame& planar) {
    const auto width = static_cast<std::size_t>(planar.width);
    const YuvPlanes planes{planar.data[0],
                           planar.data[1],
                           planar.data[2],
                           static_cast<std::size_t>(planar.linesize[0]),
                           static_cast<std::size_t>(planar.linesize[1]),
                           static_cast<std::size_t>(planar.linesize[2])};
    yuyvToI420(packed, width * 2, planes, width, static_cast<std::size_t>(planar.height));
}

inline void planarToPacked(const AVFrame& planar, uint8_t* packed) {
    const auto width = static_cast<std::size_t>(planar.width);
    const ConstYuvPlanes planes{planar.data[0],
                                planar.data[1],
                                planar.data[2],
                                static_cast<std::size_t>(planar.linesize[0]),
                                static_cast<std::size_t>(planar.linesize[1]),
                                static_cast<std::size_t>(planar.linesize[2])};
    i420ToYuyv(planes, packed, width * 2, width, static_cast<std::size_t>(planar.height));
}

}  // namespace oru::stream
