#include <algorithm>
#include <cmath>

#include "oru/Lens.hpp"
#include "oru/types.hpp"

namespace oru {
namespace {

constexpr int kMostNewtonSteps = 50;
constexpr double kNewtonTolerance = 1e-12;
constexpr double kFoundWithin = 1e-9;
constexpr int kFoldSamples = 64;

double distance(Point a, Point b) {
    return std::hypot(a.x - b.x, a.y - b.y);
}

/// The rational radial factor with its derivative by r^2.
struct Radial {
    double r2;
    double divisor;
    double factor;
    double slope;
};

Radial radialAt(const std::array<double, 12>& distortion, Point ray) {
    const auto& [k1, k2, p1, p2, k3, k4, k5, k6, s1, s2, s3, s4] = distortion;
    const double r2 = ray.x * ray.x + ray.y * ray.y;
    const double divisor = 1 + r2 * (k4 + r2 * (k5 + r2 * k6));
    const double factor = (1 + r2 * (k1 + r2 * (k2 + r2 * k3))) / divisor;
    const double numeratorSlope = k1 + r2 * (2 * k2 + r2 * 3 * k3);
    const double divisorSlope = k4 + r2 * (2 * k5 + r2 * 3 * k6);
    return {r2, divisor, factor, (numeratorSlope - factor * divisorSlope) / divisor};
}

using Matrix2 = std::array<std::array<double, 2>, 2>;

Matrix2 distortDerivative(const std::array<double, 12>& distortion, Point ray, const Radial& radial) {
    const auto& [k1, k2, p1, p2, k3, k4, k5, k6, s1, s2, s3, s4] = distortion;
    const auto [x, y] = ray;
    const double prismX = s1 + 2 * radial.r2 * s2 + radial.slope * x;
    const double prismY = s3 + 2 * radial.r2 * s4 + radial.slope * y;
    const double mixed = 2 * (p1 * x + p2 * y);
    return {{{radial.factor + 2 * p1 * y + 6 * p2 * x + 2 * x * prismX, mixed + 2 * y * prismX},
             {mixed + 2 * x * prismY, radial.factor + 6 * p1 * y + 2 * p2 * x + 2 * y * prismY}}};
}

double determinant(const Matrix2& matrix) {
    return matrix[0][0] * matrix[1][1] - matrix[0][1] * matrix[1][0];
}

/// The step that brings `ray` to the point `missing` further on, to first order; not finite where that has no answer.
Point newtonStep(const Lens& lens, Point ray, Point missing) {
    const Matrix2 slope = distortDerivative(lens.distortion, ray, radialAt(lens.distortion, ray));
    const double area = determinant(slope);
    return {(slope[1][1] * missing.x - slope[0][1] * missing.y) / area,
            (slope[0][0] * missing.y - slope[1][0] * missing.x) / area};
}

}  // namespace

Lens Lens::of(const CameraParameters& camera) {
    return {camera.fx, camera.fy, camera.cx, camera.cy, camera.distortion};
}

bool Lens::isUsable() const {
    const auto finite = [](double value) { return std::isfinite(value); };
    return fx > 0 && fy > 0 && finite(fx) && finite(fy) && finite(cx) && finite(cy) &&
           std::all_of(distortion.begin(), distortion.end(), finite);
}

Point Lens::distort(Point ray) const {
    const auto& [k1, k2, p1, p2, k3, k4, k5, k6, s1, s2, s3, s4] = distortion;
    const auto [x, y] = ray;
    const double r2 = x * x + y * y;
    const double radial = (1 + r2 * (k1 + r2 * (k2 + r2 * k3))) / (1 + r2 * (k4 + r2 * (k5 + r2 * k6)));
    return {x * radial + 2 * p1 * x * y + p2 * (r2 + 2 * x * x) + r2 * (s1 + r2 * s2),
            y * radial + p1 * (r2 + 2 * y * y) + 2 * p2 * x * y + r2 * (s3 + r2 * s4)};
}

Point Lens::project(Point ray) const {
    const Point distorted = distort(ray);
    return {fx * distorted.x + cx, fy * distorted.y + cy};
}

Point Lens::onPlane(Point pixel) const {
    return {(pixel.x - cx) / fx, (pixel.y - cy) / fy};
}

LensDerivatives Lens::derivatives(Point ray) const {
    const auto [x, y] = ray;
    const Radial radial = radialAt(distortion, ray);
    const Matrix2 slope = distortDerivative(distortion, ray, radial);
    const Point plane = distort(ray);
    const double r2 = radial.r2;
    const double r4 = r2 * r2;
    const double k = 1 / radial.divisor;  // of the numerator's coefficients
    const double d = -radial.factor * k;  // of the divisor's
    const double xk = fx * x * k;
    const double xd = fx * x * d;
    const double yk = fy * y * k;
    const double yd = fy * y * d;
    LensDerivatives result;
    result.by_ray = {{{fx * slope[0][0], fx * slope[0][1]}, {fy * slope[1][0], fy * slope[1][1]}}};
    result.by_parameter = {{{plane.x, 0, 1, 0, xk * r2, xk * r4, fx * 2 * x * y, fx * (r2 + 2 * x * x), xk * r4 * r2,
                             xd * r2, xd * r4, xd * r4 * r2, fx * r2, fx * r4, 0, 0},
                            {0, plane.y, 0, 1, yk * r2, yk * r4, fy * (r2 + 2 * y * y), fy * 2 * x * y, yk * r4 * r2,
                             yd * r2, yd * r4, yd * r4 * r2, 0, 0, fy * r2, fy * r4}}};
    return result;
}

LensInverse Lens::undistort(Point distorted) const {
    LensInverse best{distorted, distance(distort(distorted), distorted)};
    for (int step = 0; step < kMostNewtonSteps && best.error > kNewtonTolerance; ++step) {
        const Point landed = distort(best.ray);
        Point change = newtonStep(*this, best.ray, {distorted.x - landed.x, distorted.y - landed.y});
        const auto changed = [&]() -> LensInverse {
            const Point ray{best.ray.x + change.x, best.ray.y + change.y};
            return {ray, distance(distort(ray), distorted)};
        };
        LensInverse next = changed();
        for (int halving = 0; halving < kMostNewtonSteps && !(next.error < best.error); ++halving) {
            change = {change.x / 2, change.y / 2};
            next = changed();
        }
        if (!(next.error < best.error)) {
            break;
        }
        best = next;
    }
    return best;
}

bool Lens::isBeforeFold(Point ray) const {
    for (int sample = 1; sample <= kFoldSamples; ++sample) {
        const Point between{ray.x * sample / kFoldSamples, ray.y * sample / kFoldSamples};
        if (!(determinant(distortDerivative(distortion, between, radialAt(distortion, between))) > 0)) {
            return false;
        }
    }
    return true;
}

std::optional<Point> Lens::rayOf(Point pixel) const {
    const LensInverse inverse = undistort(onPlane(pixel));
    return inverse.error <= kFoundWithin && isBeforeFold(inverse.ray) ? std::optional(inverse.ray) : std::nullopt;
}

}  // namespace oru
