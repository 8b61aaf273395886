#pragma once

// For programs that use OpenCV as well; header only, and included by nothing else of this library.

#include <opencv2/core.hpp>

#include "oru/Mat.hpp"

namespace oru::interop {

/// OpenCV's name for an element type: CV_8UC1, CV_8UC2 or CV_8UC4.
[[nodiscard]] constexpr int cvTypeOf(MAT_TYPE type) {
    switch (type) {
        case U8_C2:
            return CV_8UC2;
        case U8_C4:
            return CV_8UC4;
        default:
            return CV_8UC1;
    }
}

/// The container's host pixels as a cv::Mat, without a copy; empty when it holds none.
/// What one writes the other sees. The pixels stay the container's: the cv::Mat, and copies of it that share its
/// pixels, are valid until the container's next alloc or free, or its end.
[[nodiscard]] inline cv::Mat asCvMat(const Mat& image) {
    void* const pixels = image.getPtr<void>(CPU);
    if (pixels == nullptr) {
        return {};
    }
    return {static_cast<int>(image.getHeight()), static_cast<int>(image.getWidth()), cvTypeOf(image.getDataType()),
            pixels, image.getStepBytes(CPU)};
}

}  // namespace oru::interop
