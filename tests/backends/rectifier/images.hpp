#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "backends/rectifier/reference/reference_renderer.hpp"
#include "backends/rectifier/reference/yuyv_frame.hpp"
#include "oru/types.hpp"

namespace oru::rectifier {

/// A packed image that owns its bytes, with padding after each row.
struct TestImage {
    TestImage(Size imageSize, std::size_t padding = 0)
        : size(imageSize),
          step(static_cast<std::size_t>(size.width) * 2 + padding),
          bytes(step * static_cast<std::size_t>(size.height), 0xEE) {}

    [[nodiscard]] YuyvFrame frame(float siting = kChromaSiting) const {
        return {bytes.data(), step, size.width, size.height, siting};
    }
    unsigned char* pixel(int x, int y) {
        return &bytes[static_cast<std::size_t>(y) * step + static_cast<std::size_t>(x) * 2];
    }
    void setLuma(int x, int y, int value) { pixel(x, y)[0] = static_cast<unsigned char>(value); }
    void setChroma(int x, int y, int value) { pixel(x, y)[1] = static_cast<unsigned char>(value); }

    /// `valueAt(x, y)` gives luma; chroma is `u` and `v` everywhere.
    template <class Luma>
    void fill(Luma valueAt, int u = 128, int v = 128) {
        for (int y = 0; y < size.height; ++y) {
            for (int x = 0; x < size.width; ++x) {
                setLuma(x, y, valueAt(x, y));
                setChroma(x, y, x % 2 == 0 ? u : v);
            }
        }
    }

    Size size;
    std::size_t step;
    std::vector<unsigned char> bytes;
};

/// A view that owns its bytes, with padding after each row.
struct TestView {
    TestView(Size viewSize, bool grayView, std::size_t padding = 0)
        : size(viewSize),
          gray(grayView),
          step(static_cast<std::size_t>(size.width) * (gray ? 1 : 4) + padding),
          bytes(step * static_cast<std::size_t>(size.height), kUntouched) {}

    [[nodiscard]] ViewTarget target() { return {bytes.data(), step, size.width, size.height, gray}; }
    [[nodiscard]] const unsigned char* pixel(int x, int y) const {
        return &bytes[static_cast<std::size_t>(y) * step + static_cast<std::size_t>(x) * (gray ? 1 : 4)];
    }

    static constexpr unsigned char kUntouched = 0xA5;
    Size size;
    bool gray;
    std::size_t step;
    std::vector<unsigned char> bytes;
};

struct NamedLens {
    const char* name;
    double focal;  // in widths of the image
    std::array<double, 12> distortion;
    double off_centre_x;  // pixels
    double off_centre_y;
};

/// Lenses from long to short, barrel and pincushion, with every kind of term.
inline const std::vector<NamedLens>& testLenses() {
    static const std::vector<NamedLens> lenses{
        {"without distortion", 0.6, {}, 0, 0},
        {"long, pincushion", 0.8, {0.09, 0.02}, 12.5, -7.25},
        {"normal, barrel", 0.52, {-0.28, 0.07, 0.0004, -0.0003}, -9, 6},
        {"normal, rational", 0.52, {0.6, 0.08, 0.0002, 0.0005, 0.002, 0.94, 0.21, 0.012}, 5, 3},
        {"short, rational, every term",
         0.38,
         {0.42, 0.05, 0.001, -0.0008, 0.001, 0.75, 0.14, 0.006, 0.0012, -0.0002, -0.0009, 0.0003},
         4,
         -11},
    };
    return lenses;
}

inline CameraParameters cameraOf(const NamedLens& lens, Size size) {
    CameraParameters camera;
    camera.fx = static_cast<float>(lens.focal * size.width);
    camera.fy = camera.fx * 1.004F;
    camera.cx = static_cast<float>(size.width / 2.0 + lens.off_centre_x * size.width / 1920);
    camera.cy = static_cast<float>(size.height / 2.0 + lens.off_centre_y * size.width / 1920);
    camera.distortion = lens.distortion;
    camera.image_size = {static_cast<uint64_t>(size.width), static_cast<uint64_t>(size.height)};
    return camera;
}

inline ViewGeometry geometryOf(const CameraParameters& camera, bool flipped) {
    const Lens lens = Lens::of(camera);
    const Size size{static_cast<int>(camera.image_size.width), static_cast<int>(camera.image_size.height)};
    return {lens, rectifiedCamera(lens, size), size, flipped};
}

}  // namespace oru::rectifier
