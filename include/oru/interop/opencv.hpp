#pragma once

// For programs that use OpenCV as well; header only, and included by nothing else of this library.

#include <limits>
#include <opencv2/core.hpp>
#include <vector>

#include "oru/Mat.hpp"
#include "oru/types.hpp"

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

/// The camera matrix of a lens: fx 0 cx, 0 fy cy, 0 0 1; pixel centres are whole numbers here as there.
[[nodiscard]] inline cv::Matx33d cameraMatrix(const Lens& lens) {
    return {lens.fx, 0, lens.cx, 0, lens.fy, lens.cy, 0, 0, 1};
}
[[nodiscard]] inline cv::Matx33d cameraMatrix(const CameraParameters& camera) {
    return cameraMatrix(Lens::of(camera));
}

/// The coefficients in OpenCV's order, which is that of the field as well: k1, k2, p1, p2, k3, k4, k5, k6, s1, s2, s3,
/// s4.
[[nodiscard]] inline cv::Vec<double, 12> distCoeffs(const Lens& lens) {
    return cv::Vec<double, 12>(lens.distortion.data());
}
[[nodiscard]] inline cv::Vec<double, 12> distCoeffs(const CameraParameters& camera) {
    return distCoeffs(Lens::of(camera));
}

namespace detail {

template <class T, class Move>
[[nodiscard]] std::vector<cv::Point_<T>> movedPoints(const std::vector<cv::Point_<T>>& points, Move move) {
    constexpr T kNone = std::numeric_limits<T>::quiet_NaN();
    std::vector<cv::Point_<T>> moved;
    moved.reserve(points.size());
    for (const cv::Point_<T>& point : points) {
        const auto found = move(Point{static_cast<double>(point.x), static_cast<double>(point.y)});
        moved.push_back(found ? cv::Point_<T>(static_cast<T>(found->x), static_cast<T>(found->y))
                              : cv::Point_<T>(kNone, kNone));
    }
    return moved;
}

}  // namespace detail

/// Pixels of an unrectified view as pixels of the rectified one; NaN where there is none.
template <class T>
[[nodiscard]] std::vector<cv::Point_<T>> undistortPoints(const CameraGeometry& geometry,
                                                         const std::vector<cv::Point_<T>>& unrectified) {
    return detail::movedPoints(unrectified, [&](Point pixel) { return geometry.undistort(pixel); });
}

/// Pixels of a rectified view as pixels of the unrectified one; NaN where there is none.
template <class T>
[[nodiscard]] std::vector<cv::Point_<T>> distortPoints(const CameraGeometry& geometry,
                                                       const std::vector<cv::Point_<T>>& rectified) {
    return detail::movedPoints(rectified, [&](Point pixel) { return geometry.distort(pixel); });
}

}  // namespace oru::interop
