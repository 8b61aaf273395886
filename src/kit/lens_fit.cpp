#include <Eigen/Cholesky>
#include <algorithm>
#include <cmath>
#include <vector>

#include "oru/calibration.hpp"

namespace oru {
namespace {

constexpr int kColumns = 33;
constexpr int kRows = 21;
constexpr int kPinholeParameters = 4;
constexpr int kMostSteps = 60;
constexpr double kSmallestGain = 1e-12;  // of the sum of squares, relative
constexpr double kLargestDamping = 1e12;

struct Sight {
    Point pixel;
    Point ray;
};

std::vector<Sight> sightsOf(const Lens& lens, const Resolution& image) {
    std::vector<Sight> sights;
    for (int i = 0; i < kColumns * kRows; ++i) {
        const Point pixel{static_cast<double>(i % kColumns) / (kColumns - 1) * (static_cast<double>(image.width) - 1),
                          static_cast<double>(i / kColumns) / (kRows - 1) * (static_cast<double>(image.height) - 1)};
        if (const auto ray = lens.rayOf(pixel)) {
            sights.push_back({pixel, *ray});
        }
    }
    return sights;
}

double squaresOf(const Lens& lens, const std::vector<Sight>& sights) {
    double sum = 0;
    for (const Sight& sight : sights) {
        const Point seen = lens.project(sight.ray);
        sum +=
            (seen.x - sight.pixel.x) * (seen.x - sight.pixel.x) + (seen.y - sight.pixel.y) * (seen.y - sight.pixel.y);
    }
    return sum;
}

/// The normal equations of the free parameters: the pinhole and the first coefficients.
struct Equations {
    Eigen::MatrixXd matrix;
    Eigen::VectorXd gradient;
};

Equations equationsOf(const Lens& lens, const std::vector<Sight>& sights, int free) {
    Equations equations{Eigen::MatrixXd::Zero(free, free), Eigen::VectorXd::Zero(free)};
    for (const Sight& sight : sights) {
        const Point seen = lens.project(sight.ray);
        const LensDerivatives slopes = lens.derivatives(sight.ray);
        const Eigen::Map<const Eigen::VectorXd> x(slopes.by_parameter[0].data(), free);
        const Eigen::Map<const Eigen::VectorXd> y(slopes.by_parameter[1].data(), free);
        equations.matrix += x * x.transpose() + y * y.transpose();
        equations.gradient += x * (sight.pixel.x - seen.x) + y * (sight.pixel.y - seen.y);
    }
    return equations;
}

Lens moved(Lens lens, const Eigen::VectorXd& step) {
    lens.fx += step[0];
    lens.fy += step[1];
    lens.cx += step[2];
    lens.cy += step[3];
    for (Eigen::Index i = kPinholeParameters; i < step.size(); ++i) {
        lens.distortion[static_cast<std::size_t>(i - kPinholeParameters)] += step[i];
    }
    return lens;
}

/// D. Marquardt, "An algorithm for least-squares estimation of nonlinear parameters", SIAM Journal 11(2), 1963.
Lens closest(Lens lens, const std::vector<Sight>& sights, int free) {
    double damping = 1e-3;
    double best = squaresOf(lens, sights);
    for (int step = 0; step < kMostSteps && damping < kLargestDamping; ++step) {
        Equations equations = equationsOf(lens, sights, free);
        equations.matrix.diagonal() *= 1 + damping;
        const Lens next = moved(lens, equations.matrix.ldlt().solve(equations.gradient));
        const double squares = next.isUsable() ? squaresOf(next, sights) : best;
        if (!(squares < best)) {
            damping *= 10;
            continue;
        }
        const bool still = best - squares < kSmallestGain * best;
        lens = next;
        best = squares;
        damping /= 10;
        if (still) {
            break;
        }
    }
    return lens;
}

}  // namespace

std::optional<LensFit> fitLens(const Lens& lens, const Resolution& image, int coefficients) {
    const auto kept = static_cast<std::size_t>(std::clamp(coefficients, 0, 12));
    const auto rest = lens.distortion.begin() + static_cast<std::ptrdiff_t>(kept);
    if (!lens.isUsable()) {
        return std::nullopt;
    }
    if (std::all_of(rest, lens.distortion.end(), [](double term) { return term == 0; })) {
        return LensFit{lens, 0.0};
    }
    const std::vector<Sight> sights = sightsOf(lens, image);
    if (sights.size() < kColumns * kRows / 2) {
        return std::nullopt;
    }
    Lens start = lens;
    std::fill(start.distortion.begin() + static_cast<std::ptrdiff_t>(kept), start.distortion.end(), 0.0);
    if (kept < 8) {  // a numerator means nothing without its divisor
        start.distortion = {};
    }
    LensFit fit{closest(start, sights, kPinholeParameters + static_cast<int>(kept)), 0.0};
    for (const Sight& sight : sights) {
        const Point seen = fit.lens.project(sight.ray);
        fit.max_pixels = std::max(fit.max_pixels, std::hypot(seen.x - sight.pixel.x, seen.y - sight.pixel.y));
    }
    return fit;
}

}  // namespace oru
