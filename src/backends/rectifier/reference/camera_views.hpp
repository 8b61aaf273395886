#pragma once

#include "backends/rectifier/reference/reference_renderer.hpp"
#include "oru/types.hpp"

namespace oru::rectifier {

enum ViewResult : int {
    VIEW_DRAWN = 0,
    VIEW_WITHOUT_FRAME = 1,  ///< no frame was noted since setup, or it held no YUYV pixels in host memory
    VIEW_OF_OTHER_SIZE = 2,  ///< the frame is not of the size that was set up
    VIEW_NOT_SUPPORTED = 3,  ///< unknown view, or a size of 0 or above that of the frame
    VIEW_WITHOUT_CAMERA =
        4,  ///< rectified view without usable intrinsics (never set up, or the lens shows no full view)
    VIEW_WITHOUT_MEMORY = 5,  ///< the destination could not be given the memory asked for
    VIEW_WITHOUT_DEVICE = 6,  ///< the device refused its work
};

[[nodiscard]] bool isGray(VIEW view);
[[nodiscard]] bool isRectified(VIEW view);

/// A size between 1 and 16384 either way.
[[nodiscard]] bool isDrawable(Resolution size);
[[nodiscard]] Size toSize(Resolution size);

/// What a rectifier knows of its camera, and which views it can draw therefore. One thread at a time.
class CameraViews {
public:
    /// Returns the intrinsics of the rectified views; warns when the lens has none.
    CameraParameters setUp(const CameraParameters& raw, bool flipped);
    void forget() { *this = {}; }

    /// Whether a view of this kind and size can be drawn from a frame of the given size (null: there is no frame).
    [[nodiscard]] ViewResult check(VIEW view, Resolution size, const Resolution* frame) const;
    /// False before setUp, and after it when no frame of the camera could be drawn.
    [[nodiscard]] bool isSetUp() const { return frameSize.area() != 0; }
    [[nodiscard]] const ViewGeometry& geometry() const { return known; }

private:
    ViewGeometry known{};
    Resolution frameSize;
};

}  // namespace oru::rectifier
