#pragma once

namespace oru::rectifier {

// Factors from video-range luma and chroma, less 16 and 128, to full-range colours (ITU-R BT.601).
inline constexpr double kLuma = 255.0 / 219;
inline constexpr double kBlueOfU = 1.772 * 255 / 224;
inline constexpr double kGreenOfU = -0.344136 * 255 / 224;
inline constexpr double kGreenOfV = -0.714136 * 255 / 224;
inline constexpr double kRedOfV = 1.402 * 255 / 224;

}  // namespace oru::rectifier
