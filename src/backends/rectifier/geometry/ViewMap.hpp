#pragma once

#include "backends/rectifier/geometry/rectified_camera.hpp"

namespace oru::rectifier {

/// Which place of the image each pixel of a rectified view shows. The image is the camera's, reduced to the size of
/// the view when that is smaller; both sizes cover the same area, so pixel centres do not coincide. An immutable value.
class ViewMap {
public:
    ViewMap() = default;
    ViewMap(const Lens& lens, const Intrinsics& rectified, Size source, Size view, bool flipped);

    /// The position in the reduced image of view pixel (u, v), which may lie outside the view.
    [[nodiscard]] Point at(double u, double v) const;

    /// The same as a sample is taken: every renderer decides what lies inside the image by this value.
    [[nodiscard]] SourcePosition sampleAt(int u, int v) const {
        const Point position = at(u, v);
        return {static_cast<float>(position.x), static_cast<float>(position.y)};
    }

private:
    Lens lens;
    double rayPerPixelX = 0;
    double rayPerPixelY = 0;
    double firstRayX = 0;
    double firstRayY = 0;
    double reductionX = 1;
    double reductionY = 1;
};

}  // namespace oru::rectifier
