#pragma once

#include <array>
#include <optional>

#include "oru/export.hpp"

namespace oru {

struct CameraParameters;

/// In double precision: a position in pixels, where whole numbers are pixel centres, or the ray (x, y, 1).
struct Point {
    double x = 0.0;
    double y = 0.0;

    friend bool operator==(const Point&, const Point&) = default;
};

/// How the pixel of a ray moves; the first index is the pixel's x or y.
struct LensDerivatives {
    std::array<std::array<double, 2>, 2> by_ray{};         ///< by the ray's x and y
    std::array<std::array<double, 16>, 2> by_parameter{};  ///< by fx, fy, cx, cy and the twelve coefficients
};

/// The best ray of a distorted point, and how far from that point it lands, on the plane at distance 1.
struct LensInverse {
    Point ray;
    double error = 0.0;
};

/// A pinhole with rational radial (k1..k6), tangential (p1, p2) and thin-prism (s1..s4) distortion, as documented for
/// OpenCV's calib3d module (https://docs.opencv.org/4.x/d9/d0c/group__calib3d.html), without the tilted sensor.
/// A value; its operations are safe on any thread.
struct ORU_API Lens {
    double fx = 0.0;  ///< pixels, as fy, cx and cy
    double fy = 0.0;
    double cx = 0.0;
    double cy = 0.0;
    std::array<double, 12> distortion{};  ///< k1, k2, p1, p2, k3, k4, k5, k6, s1, s2, s3, s4

    [[nodiscard]] static Lens of(const CameraParameters& camera);

    /// False for a lens that no image can come from: a focal length that is not positive, a number that is not finite.
    [[nodiscard]] bool isUsable() const;

    /// The pixel that sees a ray.
    [[nodiscard]] Point project(Point ray) const;
    [[nodiscard]] LensDerivatives derivatives(Point ray) const;

    /// Where a ray lands on the plane at distance 1, before focal lengths and principal point.
    [[nodiscard]] Point distort(Point ray) const;
    /// The place of a pixel on that plane.
    [[nodiscard]] Point onPlane(Point pixel) const;
    /// The inverse of distort() by Newton's method, halving a step that does not come closer. Where no ray lands, the
    /// nearest one found.
    [[nodiscard]] LensInverse undistort(Point distorted) const;

    /// Whether the model still maps rays to points one to one between the axis and this ray. Beyond a fold it gives a
    /// second ray to the same point; no lens does that.
    [[nodiscard]] bool isBeforeFold(Point ray) const;
    /// The inverse of project(); empty where no ray before a fold leads to the pixel. The lens is usable.
    [[nodiscard]] std::optional<Point> rayOf(Point pixel) const;

    friend bool operator==(const Lens&, const Lens&) = default;
};

}  // namespace oru
