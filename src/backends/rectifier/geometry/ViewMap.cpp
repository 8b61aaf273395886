#include "backends/rectifier/geometry/ViewMap.hpp"

namespace oru::rectifier {

ViewMap::ViewMap(const Lens& cameraLens, const Intrinsics& rectified, Size source, Size view, bool flipped)
    : lens(cameraLens),
      reductionX(static_cast<double>(source.width) / view.width),
      reductionY(static_cast<double>(source.height) / view.height) {
    const double direction = flipped ? -1 : 1;
    rayPerPixelX = direction * reductionX / rectified.fx;
    rayPerPixelY = direction * reductionY / rectified.fy;
    const double firstX = 0.5 * reductionX - 0.5;
    const double firstY = 0.5 * reductionY - 0.5;
    firstRayX = ((flipped ? source.width - 1 - firstX : firstX) - rectified.cx) / rectified.fx;
    firstRayY = ((flipped ? source.height - 1 - firstY : firstY) - rectified.cy) / rectified.fy;
}

Point ViewMap::at(double u, double v) const {
    const Point seen = lens.project({firstRayX + u * rayPerPixelX, firstRayY + v * rayPerPixelY});
    return {(seen.x + 0.5) / reductionX - 0.5, (seen.y + 0.5) / reductionY - 0.5};
}

}  // namespace oru::rectifier
