#pragma once

#include <cstddef>

namespace oru::rectifier {

/// Where a chroma sample lies, in luma pixels right of the even pixel it is stored with: 0 when the two are co-sited,
/// the usual order of a 4:2:2 image signal processor, 0.5 when it lies between its two pixels.
inline constexpr float kChromaSiting = 0.0F;

/// A packed YUYV image in host memory, BT.601 video range; borrowed. A row holds whole pairs of pixels, so that of an
/// odd width ends with a luma sample that no view uses.
struct YuyvFrame {
    const unsigned char* pixels;
    std::size_t step;  // bytes from row to row
    int width;
    int height;
    float chroma_siting;

    [[nodiscard]] const unsigned char* row(int index) const { return pixels + static_cast<std::size_t>(index) * step; }
    [[nodiscard]] int chromaColumns() const { return (width + 1) / 2; }
};

/// Where a view is written: BGRA (four bytes a pixel) or gray (one byte); borrowed.
struct ViewTarget {
    unsigned char* pixels;
    std::size_t step;
    int width;
    int height;
    bool gray;

    [[nodiscard]] unsigned char* row(int index) const { return pixels + static_cast<std::size_t>(index) * step; }
    [[nodiscard]] std::size_t pixelBytes() const { return gray ? 1 : 4; }
};

}  // namespace oru::rectifier
