#pragma once

#include <cstdint>

#include "coding/av_pointers.hpp"
#include "coding/video_codec.hpp"

namespace oru::coding {

/// The AVPixelFormat that the encoders of a codec take.
[[nodiscard]] int pixelFormat(VideoCodec codec);

/// A planar image as the codec's encoder takes it; null when there is no memory.
[[nodiscard]] AvPtr<AVFrame> makeImage(VideoCodec codec, uint32_t width, uint32_t height);

/// False while an encoder still holds a reference to the image.
[[nodiscard]] bool isWritable(AVFrame& image);
/// Gives the image a buffer of its own where an encoder still holds a reference. False: no memory.
[[nodiscard]] bool makeWritable(AVFrame& image);

/// 8 bits a sample, 4:2:0 or 4:2:2 in three planes, of either range.
[[nodiscard]] bool isPlanar420(const AVFrame& image);
[[nodiscard]] bool isPlanar422(const AVFrame& image);

/// Between the camera's packed YUYV (one block, width * 2 bytes a row) and a planar image of the same size in one of
/// the two formats. Values are copied, the range is not touched.
void packedToPlanar(const uint8_t* packed, AVFrame& planar);
void planarToPacked(const AVFrame& planar, uint8_t* packed);

}  // namespace oru::coding
