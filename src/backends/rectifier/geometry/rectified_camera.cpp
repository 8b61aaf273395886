#include "backends/rectifier/geometry/rectified_camera.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace oru::rectifier {
namespace {

constexpr int kSamplesPerEdge = 96;
constexpr double kWidestZoom = 0.05;
constexpr double kNarrowestZoom = 8;
constexpr double kZoomStep = 0.98;
constexpr double kRoundingPixels = 1e-6;

/// Room between what the view sees and the image's border, in pixels, negative when the view leaves the image.
struct Margins {
    double left = std::numeric_limits<double>::max();
    double right = left;
    double top = left;
    double bottom = left;
    bool folded = false;

    [[nodiscard]] bool inside() const { return !folded && std::min({left, right, top, bottom}) >= -kRoundingPixels; }
};

/// By differences a little way outwards, which the exact derivatives would not reproduce: the rectified camera of a
/// folding lens hangs on it.
bool foldsAt(const Lens& lens, Point ray) {
    constexpr double kStep = 1e-4;
    const Point here = lens.project(ray);
    const Point right = lens.project({ray.x + kStep, ray.y});
    const Point below = lens.project({ray.x, ray.y + kStep});
    const double area = (right.x - here.x) * (below.y - here.y) - (right.y - here.y) * (below.x - here.x);
    return !(area > 0);
}

Margins marginsOf(const Lens& lens, const Intrinsics& camera, Size size) {
    Margins margins;
    const double lastX = size.width - 1;
    const double lastY = size.height - 1;
    const auto look = [&](double u, double v) {
        const Point ray{(u - camera.cx) / camera.fx, (v - camera.cy) / camera.fy};
        const Point seen = lens.project(ray);
        margins.left = std::min(margins.left, seen.x);
        margins.right = std::min(margins.right, lastX - seen.x);
        margins.top = std::min(margins.top, seen.y);
        margins.bottom = std::min(margins.bottom, lastY - seen.y);
        margins.folded = margins.folded || foldsAt(lens, ray);
    };
    for (int i = 0; i <= kSamplesPerEdge; ++i) {
        const double part = static_cast<double>(i) / kSamplesPerEdge;
        look(part * lastX, 0);
        look(part * lastX, lastY);
        look(0, part * lastY);
        look(lastX, part * lastY);
    }
    return margins;
}

/// The shortest focal length, with this principal point, that is reached from a narrow view without leaving the
/// image on the way; 0 when even the narrow view leaves it.
double shortestFocalLength(const Lens& lens, Intrinsics camera, Size size, double reference) {
    const auto inside = [&](double focal) {
        camera.fx = camera.fy = focal;
        return marginsOf(lens, camera, size).inside();
    };
    double good = reference * kNarrowestZoom;
    if (!inside(good)) {
        return 0;
    }
    double bad = good * kZoomStep;
    while (bad > reference * kWidestZoom && inside(bad)) {
        good = bad;
        bad *= kZoomStep;
    }
    for (int halving = 0; halving < 40; ++halving) {
        const double middle = (good + bad) / 2;
        (inside(middle) ? good : bad) = middle;
    }
    return good;
}

}  // namespace

Intrinsics rectifiedCamera(const Lens& lens, Size size) {
    const double reference = std::max(lens.fx, lens.fy);
    Intrinsics trial{0, 0, lens.cx, lens.cy};
    Intrinsics best{};
    for (int balancing = 0; balancing < 5; ++balancing) {
        const double focal = shortestFocalLength(lens, trial, size, reference);
        if (focal == 0) {
            break;
        }
        trial.fx = trial.fy = focal;
        if (best.fx == 0 || focal < best.fx) {
            best = trial;
        }
        const Margins margins = marginsOf(lens, trial, size);
        trial.cx += (margins.left - margins.right) / 2 * focal / lens.fx;
        trial.cy += (margins.top - margins.bottom) / 2 * focal / lens.fy;
    }
    return best;
}

}  // namespace oru::rectifier
