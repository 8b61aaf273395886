#pragma once

#include <string>
#include <vector>

#include "backends/rectifier/reference/reference_renderer.hpp"
#include "oru/types.hpp"

namespace oru::bench {

/// A lens, with its focal length in widths of the image.
struct BenchLens {
    std::string name;
    double focal;
    std::array<double, 12> distortion;
};

/// Short, normal and long; the normal one is what times are taken with.
const BenchLens& normalLens();
const std::vector<BenchLens>& allLenses();

CameraParameters cameraOf(const BenchLens& lens, rectifier::Size size);
rectifier::ViewGeometry geometryOf(const CameraParameters& camera);

/// A packed image such as a camera makes, whose colours all lie within RGB: shapes, fine texture, noise, and chroma
/// that changes more slowly.
std::vector<unsigned char> packedScene(rectifier::Size size, unsigned seed);

}  // namespace oru::bench
