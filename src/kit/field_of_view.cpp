#include <Eigen/Geometry>
#include <cmath>
#include <optional>

#include "collaborators/kit_functions.hpp"

namespace oru {
namespace {

using Eigen::Vector2d;
using Eigen::Vector3d;

constexpr double kDegreesPerRadian = 57.29577951308232;
constexpr int kMostNewtonSteps = 50;
constexpr double kNewtonTolerance = 1e-12;
constexpr double kDifferenceStep = 1e-6;
constexpr int kFoldSamples = 64;

bool isPinhole(const CameraParameters& params) {
    return params.fx > 0.0F && params.fy > 0.0F;
}

Vector2d normalised(const CameraParameters& params, const Vector2d& pixel) {
    return {(pixel.x() - params.cx) / params.fx, (pixel.y() - params.cy) / params.fy};
}

/// The lens model of docs.opencv.org, "Camera Calibration and 3D Reconstruction": rational radial (k1..k6), tangential
/// (p1, p2) and thin prism (s1..s4), on the plane at distance 1.
Vector2d distort(const std::array<double, 12>& lens, const Vector2d& point) {
    const auto& [k1, k2, p1, p2, k3, k4, k5, k6, s1, s2, s3, s4] = lens;
    const double x = point.x();
    const double y = point.y();
    const double r2 = x * x + y * y;
    const double radial = (1 + r2 * (k1 + r2 * (k2 + r2 * k3))) / (1 + r2 * (k4 + r2 * (k5 + r2 * k6)));
    return {x * radial + 2 * p1 * x * y + p2 * (r2 + 2 * x * x) + r2 * (s1 + r2 * s2),
            y * radial + p1 * (r2 + 2 * y * y) + 2 * p2 * x * y + r2 * (s3 + r2 * s4)};
}

Eigen::Matrix2d jacobian(const std::array<double, 12>& lens, const Vector2d& point) {
    Eigen::Matrix2d result;
    for (int axis = 0; axis < 2; ++axis) {
        const Vector2d step = kDifferenceStep * Vector2d::Unit(axis);
        result.col(axis) = (distort(lens, point + step) - distort(lens, point - step)) / (2 * kDifferenceStep);
    }
    return result;
}

/// Beyond a fold the model maps a second ray to the same point; no lens does that.
bool isBeforeFold(const std::array<double, 12>& lens, const Vector2d& point) {
    for (int sample = 1; sample <= kFoldSamples; ++sample) {
        if (!(jacobian(lens, point * sample / kFoldSamples).determinant() > 0)) {
            return false;
        }
    }
    return true;
}

/// The ray whose distorted image is `target`: Newton's method, halving a step that does not come closer. Empty when
/// what remains is above the tolerance (a part of the target's radius) or the model folds back there.
std::optional<Vector2d> undistort(const std::array<double, 12>& lens, const Vector2d& target, double tolerance) {
    Vector2d point = target;
    double error = (distort(lens, point) - target).norm();
    for (int step = 0; step < kMostNewtonSteps && error > kNewtonTolerance; ++step) {
        Vector2d change = jacobian(lens, point).inverse() * (target - distort(lens, point));
        double next = (distort(lens, point + change) - target).norm();
        for (int halving = 0; halving < kMostNewtonSteps && !(next < error); ++halving) {
            change /= 2;
            next = (distort(lens, point + change) - target).norm();
        }
        if (!(next < error)) {
            break;
        }
        point += change;
        error = next;
    }
    const bool isFound = error <= tolerance * target.norm() && isBeforeFold(lens, point);
    return isFound ? std::optional<Vector2d>(point) : std::nullopt;
}

float angleDegrees(const Vector2d& first, const Vector2d& second) {
    const Vector3d a = first.homogeneous();
    const Vector3d b = second.homogeneous();
    return static_cast<float>(std::atan2(a.cross(b).norm(), a.dot(b)) * kDegreesPerRadian);
}

/// Two opposite points of the image border, in pixels, and where the angle between their rays belongs.
struct Span {
    Vector2d first;
    Vector2d second;
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
    for (const Span& span : spans(params, resolution)) {
        span.angle =
            isPinhole(params) ? angleDegrees(normalised(params, span.first), normalised(params, span.second)) : 0;
    }
}

void ComputeTVDistoFov(CameraParameters& params, Resolution& resolution, float tolerance) {
    ComputeRectilinearFoV(params, resolution);
    if (!isPinhole(params)) {
        return;
    }
    const double part = tolerance / 100.0;
    for (const Span& span : spans(params, resolution)) {
        const auto first = undistort(params.distortion, normalised(params, span.first), part);
        const auto second = undistort(params.distortion, normalised(params, span.second), part);
        if (first && second) {
            span.angle = angleDegrees(*first, *second);
        }
    }
}

}  // namespace oru
