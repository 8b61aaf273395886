#include "backends/rectifier/geometry/lens.hpp"

#include <algorithm>
#include <cmath>

namespace oru::rectifier {

Lens::Lens(const CameraParameters& raw) : intrinsics{raw.fx, raw.fy, raw.cx, raw.cy}, distortion(raw.distortion) {}

bool Lens::usable() const {
    const auto finite = [](double value) { return std::isfinite(value); };
    return intrinsics.fx > 0 && intrinsics.fy > 0 && finite(intrinsics.fx) && finite(intrinsics.fy) &&
           finite(intrinsics.cx) && finite(intrinsics.cy) && std::all_of(distortion.begin(), distortion.end(), finite);
}

Point Lens::project(Point ray) const {
    const auto& [k1, k2, p1, p2, k3, k4, k5, k6, s1, s2, s3, s4] = distortion;
    const double x = ray.x;
    const double y = ray.y;
    const double r2 = x * x + y * y;
    const double radial = (1 + r2 * (k1 + r2 * (k2 + r2 * k3))) / (1 + r2 * (k4 + r2 * (k5 + r2 * k6)));
    const double distortedX = x * radial + 2 * p1 * x * y + p2 * (r2 + 2 * x * x) + r2 * (s1 + r2 * s2);
    const double distortedY = y * radial + p1 * (r2 + 2 * y * y) + 2 * p2 * x * y + r2 * (s3 + r2 * s4);
    return {intrinsics.fx * distortedX + intrinsics.cx, intrinsics.fy * distortedY + intrinsics.cy};
}

}  // namespace oru::rectifier
