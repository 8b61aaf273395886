#include <Eigen/LU>
#include <Eigen/SVD>
#include <algorithm>
#include <cmath>
#include <vector>

#include "oru/calibration.hpp"

namespace oru {
namespace {

constexpr int kColumns = 33;
constexpr int kRows = 21;
constexpr double kCentralPart = 0.8;  // of each side: the rotation is that of the image's central 64 %
constexpr double kDegreesPerRadian = 57.29577951308232;

/// One pixel of the first lens, with the rays of both lenses there.
struct Sight {
    Point pixel;
    Eigen::Vector3d first;
    Eigen::Vector3d second;
    bool central = false;
};

Eigen::Vector3d directionOf(Point ray) {
    return Eigen::Vector3d(ray.x, ray.y, 1).normalized();
}

std::vector<Sight> sightsOf(const Lens& first, const Lens& second, const Resolution& image) {
    std::vector<Sight> sights;
    for (int row = 0; row < kRows; ++row) {
        for (int column = 0; column < kColumns; ++column) {
            const double right = static_cast<double>(column) / (kColumns - 1);
            const double down = static_cast<double>(row) / (kRows - 1);
            const Point pixel{right * (static_cast<double>(image.width) - 1),
                              down * (static_cast<double>(image.height) - 1)};
            const auto firstRay = first.rayOf(pixel);
            const auto secondRay = second.rayOf(pixel);
            if (firstRay && secondRay) {
                const bool central = std::max(std::abs(right - 0.5), std::abs(down - 0.5)) <= kCentralPart / 2;
                sights.push_back({pixel, directionOf(*firstRay), directionOf(*secondRay), central});
            }
        }
    }
    return sights;
}

/// The rotation that brings the first rays closest to the second: W. Kabsch, "A solution for the best rotation to
/// relate two sets of vectors", Acta Crystallographica A32, 1976.
Eigen::Matrix3d bestRotation(const std::vector<Sight>& sights) {
    Eigen::Matrix3d product = Eigen::Matrix3d::Zero();
    for (const Sight& sight : sights) {
        if (sight.central) {
            product += sight.second * sight.first.transpose();
        }
    }
    const Eigen::JacobiSVD<Eigen::Matrix3d> svd(product, Eigen::ComputeFullU | Eigen::ComputeFullV);
    const double handedness = (svd.matrixU() * svd.matrixV().transpose()).determinant() < 0 ? -1 : 1;
    return svd.matrixU() * Eigen::Vector3d(1, 1, handedness).asDiagonal() * svd.matrixV().transpose();
}

}  // namespace

std::optional<LensDifference> compareLenses(const Lens& first, const Lens& second, const Resolution& image) {
    if (!first.isUsable() || !second.isUsable()) {
        return std::nullopt;
    }
    const std::vector<Sight> sights = sightsOf(first, second, image);
    if (sights.size() < kColumns * kRows / 2) {
        return std::nullopt;
    }
    const Eigen::Matrix3d rotation = bestRotation(sights);
    const Eigen::Vector3d axis(rotation(2, 1) - rotation(1, 2), rotation(0, 2) - rotation(2, 0),
                               rotation(1, 0) - rotation(0, 1));
    LensDifference result;
    result.rotation_degrees = std::atan2(axis.norm(), rotation.trace() - 1) * kDegreesPerRadian;
    result.points = static_cast<int>(sights.size());
    for (const Sight& sight : sights) {
        const Eigen::Vector3d turned = rotation * sight.first;
        const Point seen = second.project({turned.x() / turned.z(), turned.y() / turned.z()});
        const double distance = std::hypot(seen.x - sight.pixel.x, seen.y - sight.pixel.y);
        result.mean_pixels += distance / static_cast<double>(sights.size());
        result.max_pixels = std::max(result.max_pixels, distance);
    }
    return result;
}

}  // namespace oru
