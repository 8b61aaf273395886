#include "backends/rectifier/reference/camera_views.hpp"

#include "backends/rectifier/reference/notices.hpp"

namespace oru::rectifier {
namespace {

constexpr uint64_t kLargestSide = 16384;
constexpr int kGrayBit = 2;
constexpr int kUnrectifiedBit = 4;

bool isView(VIEW view) {
    return (view & ~(kGrayBit | kUnrectifiedBit)) == 0;
}

}  // namespace

bool isGray(VIEW view) {
    return (view & kGrayBit) != 0;
}

bool isRectified(VIEW view) {
    return (view & kUnrectifiedBit) == 0;
}

bool isDrawable(Resolution size) {
    return size.width >= 1 && size.height >= 1 && size.width <= kLargestSide && size.height <= kLargestSide;
}

Size toSize(Resolution size) {
    return {static_cast<int>(size.width), static_cast<int>(size.height)};
}

CameraParameters CameraViews::setUp(const CameraParameters& raw, bool flipped) {
    CameraParameters rectified = raw;
    rectified.distortion = {};
    known = {Lens::of(raw), {}, {}, flipped};
    frameSize = {};
    if (!isDrawable(raw.image_size)) {
        return rectified;
    }
    frameSize = raw.image_size;
    known.source = toSize(frameSize);
    if (known.lens.isUsable()) {
        known.rectified = rectifiedCamera(known.lens, known.source);
    }
    if (known.rectified.fx == 0) {
        warn("The calibration of this camera gives no rectified view.");
        return rectified;
    }
    rectified.fx = rectified.fy = static_cast<float>(known.rectified.fx);
    rectified.cx = static_cast<float>(known.rectified.cx);
    rectified.cy = static_cast<float>(known.rectified.cy);
    known.rectified = {rectified.fx, rectified.fy, rectified.cx, rectified.cy};
    return rectified;
}

ViewResult CameraViews::check(VIEW view, Resolution size, const Resolution* frame) const {
    if (frame == nullptr) {
        return VIEW_WITHOUT_FRAME;
    }
    if (*frame != frameSize) {
        return VIEW_OF_OTHER_SIZE;
    }
    if (!isView(view) || size.width > frameSize.width || size.height > frameSize.height || frameSize.width % 2 != 0) {
        return VIEW_NOT_SUPPORTED;
    }
    return isRectified(view) && known.rectified.fx == 0 ? VIEW_WITHOUT_CAMERA : VIEW_DRAWN;
}

}  // namespace oru::rectifier
