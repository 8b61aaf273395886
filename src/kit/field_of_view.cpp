#include <Eigen/Geometry>
#include <cmath>
#include <optional>

#include "collaborators/kit_functions.hpp"
#include "oru/Lens.hpp"

namespace oru {
namespace {

using Eigen::Vector3d;

constexpr double kDegreesPerRadian = 57.29577951308232;

bool isPinhole(const CameraParameters& params) {
    return params.fx > 0.0F && params.fy > 0.0F;
}

/// The ray of a pixel; empty when it lands further away than `tolerance` (a part of the pixel's distance from the
/// principal point) or the model folds back there.
std::optional<Point> undistort(const Lens& lens, Point pixel, double tolerance) {
    const Point target = lens.onPlane(pixel);
    const LensInverse inverse = lens.undistort(target);
    const bool isFound = inverse.error <= tolerance * std::hypot(target.x, target.y) && lens.isBeforeFold(inverse.ray);
    return isFound ? std::optional(inverse.ray) : std::nullopt;
}

float angleDegrees(Point first, Point second) {
    const Vector3d a(first.x, first.y, 1);
    const Vector3d b(second.x, second.y, 1);
    return static_cast<float>(std::atan2(a.cross(b).norm(), a.dot(b)) * kDegreesPerRadian);
}

/// Two opposite points of the image border, in pixels, and where the angle between their rays belongs.
struct Span {
    Point first;
    Point second;
    float& angle;
};

std::array<Span, 3> spans(CameraParameters& params, const Resolution& resolution) {
    const auto width = static_cast<double>(resolution.width);
    const auto height = static_cast<double>(resolution.height);
    return {Span{{params.cx, 0}, {params.cx, height}, params.fov_v},
            Span{{0, params.cy}, {width, params.cy}, params.fov_h}, Span{{0, 0}, {width, height}, params.fov_d}};
}

}  // namespace

void ComputeRectilinearFoV(CameraParameters& params, Resolution& resolution) {
    const Lens lens = Lens::of(params);
    for (const Span& span : spans(params, resolution)) {
        span.angle = isPinhole(params) ? angleDegrees(lens.onPlane(span.first), lens.onPlane(span.second)) : 0;
    }
}

void ComputeTVDistoFov(CameraParameters& params, Resolution& resolution, float tolerance) {
    ComputeRectilinearFoV(params, resolution);
    if (!isPinhole(params)) {
        return;
    }
    const Lens lens = Lens::of(params);
    const double part = tolerance / 100.0;
    for (const Span& span : spans(params, resolution)) {
        const auto first = undistort(lens, span.first, part);
        const auto second = undistort(lens, span.second, part);
        if (first && second) {
            span.angle = angleDegrees(*first, *second);
        }
    }
}

}  // namespace oru
