#pragma once

#include <array>

namespace oru::virtual_bus {

struct Point {
    double x = 0.0;
    double y = 0.0;
};

/// Pinhole with rational radial (k1..k6), tangential (p1, p2) and thin-prism (s1..s4) distortion, as documented for
/// OpenCV's calib3d module (https://docs.opencv.org/4.x/d9/d0c/group__calib3d.html), without the tilted sensor.
struct Lens {
    double fx = 0.0;  ///< pixels, as fy, cx and cy; integer coordinates are pixel centres
    double fy = 0.0;
    double cx = 0.0;
    double cy = 0.0;
    std::array<double, 12> distortion{};  ///< k1, k2, p1, p2, k3, k4, k5, k6, s1, s2, s3, s4

    friend bool operator==(const Lens&, const Lens&) = default;
};

/// Where the direction (x, y, 1) meets the distorted image plane, in units of the focal length.
[[nodiscard]] Point distort(const Lens& lens, Point direction);

/// The direction (x, y, 1) that a pixel looks into: Newton's method on distort(). False when it does not converge,
/// which means that the coefficients fold the image over at that pixel; `direction` is then the best one found.
[[nodiscard]] bool undistortPixel(const Lens& lens, Point pixel, Point& direction);

}  // namespace oru::virtual_bus
