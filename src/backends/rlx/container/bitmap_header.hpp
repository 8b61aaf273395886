#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "utils/bytes.hpp"

namespace oru::rlx {

using Fourcc = std::array<uint8_t, 4>;

inline constexpr Fourcc kFfvhuff{'F', 'F', 'V', 'H'};
inline constexpr Fourcc kFfv1{'F', 'F', 'V', '1'};
inline constexpr std::size_t kBitmapHeaderSize = 40;

/// The BITMAPINFOHEADER (40 bytes, little-endian) that a V_MS/VFW/FOURCC track carries, and the coder's own bytes.
[[nodiscard]] Bytes bitmapHeader(const Fourcc& coder, uint32_t width, uint32_t height, ByteView extra);

}  // namespace oru::rlx
