#pragma once

#include <array>

#include "oru/types.hpp"

namespace oru::rectifier {

/// Where a sample is taken, in pixels; whole numbers are pixel centres.
struct SourcePosition {
    float x;
    float y;
};

/// A point in double precision: a position in pixels, or a ray at depth one.
struct Point {
    double x;
    double y;
};

struct Intrinsics {
    double fx;
    double fy;
    double cx;
    double cy;
};

/// The camera's lens: OpenCV's rational, tangential and thin-prism model (calib3d documentation, "Detailed
/// Description"), with the coefficients in the order k1, k2, p1, p2, k3, k4, k5, k6, s1, s2, s3, s4.
/// An immutable value; any thread.
class Lens {
public:
    Lens() = default;
    explicit Lens(const CameraParameters& raw);

    /// False for a record that no image can come from: a focal length that is not positive, a number that is not
    /// finite.
    [[nodiscard]] bool usable() const;

    /// The image position of the ray (x, y, 1).
    [[nodiscard]] Point project(Point ray) const;

    [[nodiscard]] const Intrinsics& pinhole() const { return intrinsics; }
    [[nodiscard]] const std::array<double, 12>& coefficients() const { return distortion; }

private:
    Intrinsics intrinsics{};
    std::array<double, 12> distortion{};
};

}  // namespace oru::rectifier
