#pragma once

#include <cstddef>
#include <cstdint>

#include "coding/video_codec.hpp"
#include "oru/types.hpp"
#include "utils/bytes.hpp"

namespace oru::rlx {

/// NONE for a mode without a codec, RLX_RAW included.
[[nodiscard]] coding::VideoCodec modeCodec(RLX_COMPRESSION_MODE mode);

/// The BITMAPINFOHEADER (40 bytes, little-endian) that a V_MS/VFW/FOURCC track carries, and the coder's own bytes.
[[nodiscard]] Bytes bitmapHeader(uint32_t width, uint32_t height, ByteView extra);
inline constexpr std::size_t kBitmapHeaderSize = 40;

}  // namespace oru::rlx
