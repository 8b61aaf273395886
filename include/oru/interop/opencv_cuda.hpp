#pragma once

#include <opencv2/core/cuda.hpp>

#include "oru/interop/opencv.hpp"

namespace oru::interop {

/// The container's device pixels as a cv::cuda::GpuMat, without a copy; empty when it holds none. What was said of
/// asCvMat holds here. The pixels lie in the camera's CUDA context (InitParametersOne::cuda_context), and a view is
/// complete when retrieveImage returns, so any stream of that context may read it.
[[nodiscard]] inline cv::cuda::GpuMat asGpuMat(const Mat& image) {
    void* const pixels = image.getPtr<void>(GPU);
    if (pixels == nullptr) {
        return cv::cuda::GpuMat();
    }
    return {static_cast<int>(image.getHeight()), static_cast<int>(image.getWidth()), cvTypeOf(image.getDataType()),
            pixels, image.getStepBytes(GPU)};
}

}  // namespace oru::interop
