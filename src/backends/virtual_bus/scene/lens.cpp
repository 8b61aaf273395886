#include "backends/virtual_bus/scene/lens.hpp"

#include <cmath>

namespace oru::virtual_bus {
namespace {

constexpr int kNewtonSteps = 40;
constexpr double kConverged = 1e-10;
constexpr double kDifferenceStep = 1e-6;

Point subtract(Point a, Point b) {
    return {a.x - b.x, a.y - b.y};
}

double norm(Point p) {
    return std::hypot(p.x, p.y);
}

/// One Newton step of distort(direction) = target; false when the Jacobian is singular.
bool newtonStep(const Lens& lens, Point direction, Point error, Point& step) {
    const Point right = distort(lens, {direction.x + kDifferenceStep, direction.y});
    const Point left = distort(lens, {direction.x - kDifferenceStep, direction.y});
    const Point below = distort(lens, {direction.x, direction.y + kDifferenceStep});
    const Point above = distort(lens, {direction.x, direction.y - kDifferenceStep});
    const Point dx = subtract(right, left);
    const Point dy = subtract(below, above);
    const double determinant = dx.x * dy.y - dy.x * dx.y;
    if (!(std::abs(determinant) > 1e-18)) {
        return false;
    }
    const double scale = 2.0 * kDifferenceStep / determinant;
    step = {(dy.y * error.x - dy.x * error.y) * scale, (dx.x * error.y - dx.y * error.x) * scale};
    return true;
}

}  // namespace

Point distort(const Lens& lens, Point direction) {
    const auto& d = lens.distortion;
    const double x = direction.x;
    const double y = direction.y;
    const double r2 = x * x + y * y;
    const double r4 = r2 * r2;
    const double r6 = r4 * r2;
    const double radial = (1.0 + d[0] * r2 + d[1] * r4 + d[4] * r6) / (1.0 + d[5] * r2 + d[6] * r4 + d[7] * r6);
    return {x * radial + 2.0 * d[2] * x * y + d[3] * (r2 + 2.0 * x * x) + d[8] * r2 + d[9] * r4,
            y * radial + d[2] * (r2 + 2.0 * y * y) + 2.0 * d[3] * x * y + d[10] * r2 + d[11] * r4};
}

bool undistortPixel(const Lens& lens, Point pixel, Point& direction) {
    const Point target{(pixel.x - lens.cx) / lens.fx, (pixel.y - lens.cy) / lens.fy};
    direction = target;
    Point error = subtract(target, distort(lens, direction));
    for (int i = 0; i < kNewtonSteps && norm(error) > kConverged; ++i) {
        Point step;
        if (!newtonStep(lens, direction, error, step)) {
            return false;
        }
        // Halving keeps a step from jumping over a fold of the rational function.
        double length = 1.0;
        for (; length > 1e-3; length *= 0.5) {
            const Point next{direction.x + length * step.x, direction.y + length * step.y};
            const Point remaining = subtract(target, distort(lens, next));
            if (norm(remaining) < norm(error)) {
                direction = next;
                error = remaining;
                break;
            }
        }
        if (length <= 1e-3) {
            break;
        }
    }
    return norm(error) < 1e-7;
}

}  // namespace oru::virtual_bus
