#include <algorithm>
#include <array>

#include "oru/types.hpp"

namespace oru {
namespace {

constexpr int kUnrectifiedBit = 4;  // of a VIEW

/// A lens for an image of another size: pixel borders, not centres, coincide.
Lens resized(Lens lens, const Resolution& from, const Resolution& to) {
    if (from != to && from.area() != 0 && to.area() != 0) {
        const double x = static_cast<double>(to.width) / static_cast<double>(from.width);
        const double y = static_cast<double>(to.height) / static_cast<double>(from.height);
        lens.fx *= x;
        lens.fy *= y;
        lens.cx = (lens.cx + 0.5) * x - 0.5;
        lens.cy = (lens.cy + 0.5) * y - 0.5;
    }
    return lens;
}

/// What getCameraInformation rescaled, which moved pixel centres as if they were borders.
Lens atOwnSize(const CameraParameters& camera, const Resolution& own) {
    Lens lens = Lens::of(camera);
    if (camera.image_size != own && camera.image_size.area() != 0 && own.area() != 0) {
        const double x = static_cast<double>(own.width) / static_cast<double>(camera.image_size.width);
        const double y = static_cast<double>(own.height) / static_cast<double>(camera.image_size.height);
        lens = {lens.fx * x, lens.fy * y, lens.cx * x, lens.cy * y, lens.distortion};
    }
    return lens;
}

/// The lens of an image turned by 180 degrees, along axes that are turned with it. The camera tells the principal point
/// as a distance from the other border; as a pixel it lies one less from it. Radial terms are the same after the turn,
/// the others change sign.
Lens turned(Lens lens) {
    constexpr std::array<std::size_t, 6> kTangentialAndPrism{2, 3, 8, 9, 10, 11};
    lens.cx -= 1;
    lens.cy -= 1;
    for (const std::size_t i : kTangentialAndPrism) {
        lens.distortion[i] = -lens.distortion[i];
    }
    return lens;
}

Lens viewLens(const CameraParameters& camera, const Resolution& own, const Resolution& view, bool flipped) {
    const Lens lens = atOwnSize(camera, own);
    return resized(flipped ? turned(lens) : lens, own, view);
}

bool hasDistortion(const Lens& lens) {
    return std::any_of(lens.distortion.begin(), lens.distortion.end(), [](double term) { return term != 0; });
}

}  // namespace

CameraGeometry::CameraGeometry(const CameraModeDescription& configuration, Resolution view, bool flipped)
    : viewSize(view.area() == 0 ? configuration.resolution : view) {
    const Resolution& own = configuration.resolution;
    rectified = viewLens(configuration.calibration, own, viewSize, flipped);
    rectified.distortion = {};
    unrectified = viewLens(configuration.raw_calibration, own, viewSize, flipped);
}

const Lens& CameraGeometry::lens(VIEW view) const {
    return (view & kUnrectifiedBit) != 0 ? unrectified : rectified;
}

std::optional<Point> CameraGeometry::projectRay(const Lens& lens, Point ray) const {
    if (!lens.isUsable()) {
        return std::nullopt;
    }
    if (hasDistortion(lens)) {
        // The rectified view lies before any fold; only beyond it one must be looked for.
        const Point place = rectified.isUsable() ? rectified.project(ray) : Point{-1, -1};
        const bool shown = place.x >= 0 && place.y >= 0 && place.x <= static_cast<double>(viewSize.width) - 1 &&
                           place.y <= static_cast<double>(viewSize.height) - 1;
        if (!shown && !lens.isBeforeFold(ray)) {
            return std::nullopt;
        }
    }
    return lens.project(ray);
}

std::optional<Point> CameraGeometry::project(VIEW view, const Vector3<double>& point) const {
    if (!(point[2] > 0)) {
        return std::nullopt;
    }
    return projectRay(lens(view), {point[0] / point[2], point[1] / point[2]});
}

std::optional<Point> CameraGeometry::unproject(VIEW view, Point pixel) const {
    const Lens& seen = lens(view);
    return seen.isUsable() ? seen.rayOf(pixel) : std::nullopt;
}

std::optional<Point> CameraGeometry::undistort(Point pixel) const {
    const std::optional<Point> ray = unproject(UNRECTIFIED, pixel);
    return ray ? projectRay(rectified, *ray) : std::nullopt;
}

std::optional<Point> CameraGeometry::distort(Point pixel) const {
    const std::optional<Point> ray = unproject(RECTIFIED, pixel);
    return ray ? projectRay(unrectified, *ray) : std::nullopt;
}

}  // namespace oru
