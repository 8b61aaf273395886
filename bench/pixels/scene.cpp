#include "bench/pixels/scene.hpp"

#include <cmath>
#include <random>

namespace oru::bench {

using rectifier::Size;

const std::vector<BenchLens>& allLenses() {
    static const std::vector<BenchLens> lenses{
        {"normal", 0.556, {0.381111, 0.016261, 0.00042, -0.00028, 0.00021, 0.544444, 0.057167, 0.00034}},
        {"short", 0.38, {0.42, 0.05, 0.001, -0.0008, 0.001, 0.75, 0.14, 0.006, 0.0012, -0.0002, -0.0009, 0.0003}},
        {"long", 0.8, {0.09, 0.02, 0.0003, -0.0002}},
    };
    return lenses;
}

const BenchLens& normalLens() {
    return allLenses().front();
}

CameraParameters cameraOf(const BenchLens& lens, Size size) {
    CameraParameters camera;
    camera.fx = static_cast<float>(lens.focal * size.width);
    camera.fy = camera.fx * 0.9995F;
    camera.cx = static_cast<float>(size.width) * 0.5038F;
    camera.cy = static_cast<float>(size.height) * 0.4955F;
    camera.distortion = lens.distortion;
    camera.image_size = {static_cast<uint64_t>(size.width), static_cast<uint64_t>(size.height)};
    return camera;
}

rectifier::ViewGeometry geometryOf(const CameraParameters& camera) {
    const Lens lens = Lens::of(camera);
    const Size size{static_cast<int>(camera.image_size.width), static_cast<int>(camera.image_size.height)};
    return {lens, rectifier::rectifiedCamera(lens, size), size, false};
}

std::vector<unsigned char> packedScene(Size size, unsigned seed) {
    std::vector<unsigned char> bytes(static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height) * 2);
    std::mt19937 random(seed);
    unsigned char* out = bytes.data();
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x, out += 2) {
            const double shape = std::sin(x * 0.013 + seed) * std::cos(y * 0.017) > 0.2 ? 30 : -10;
            const double texture = 14 * std::sin(x * 1.1) * std::cos(y * 0.9);
            const int noise = static_cast<int>(random() % 9) - 4;
            const double tint = 20 * std::sin(x * 0.021 + y * 0.008 + (x % 2 == 0 ? 0 : 2));
            out[0] = static_cast<unsigned char>(118 + shape + texture + noise);
            out[1] = static_cast<unsigned char>(128 + tint + noise / 2);
        }
    }
    return bytes;
}

}  // namespace oru::bench
