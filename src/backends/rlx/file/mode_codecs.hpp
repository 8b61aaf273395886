#pragma once

#include "coding/video_codec.hpp"
#include "oru/types.hpp"

namespace oru::rlx {

/// NONE for a mode without a codec, RLX_RAW included.
[[nodiscard]] coding::VideoCodec modeCodec(RLX_COMPRESSION_MODE mode);

}  // namespace oru::rlx
