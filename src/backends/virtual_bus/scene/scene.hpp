#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "backends/virtual_bus/scene/textures.hpp"

namespace oru::virtual_bus {

struct Vector3 {
    float x = 0.0F;
    float y = 0.0F;
    float z = 0.0F;
};

/// Where and how the camera looks: `rows` turns camera axes into world axes; metres.
struct View {
    std::array<std::array<float, 3>, 3> rows{};
    Vector3 eye;
};

/// One side of a box with its texture: texel = (point[u_axis] - u_origin) * u_scale, and v alike.
struct Surface {
    const Texture* texture = nullptr;
    int u_axis = 0;
    int v_axis = 0;
    float u_origin = 0.0F;
    float v_origin = 0.0F;
    float u_scale = 1.0F;
    float v_scale = 1.0F;
};

struct Hit {
    float distance = 0.0F;  ///< along the ray, in units of its length
    int surface = 0;
};

/// A furnished room of axis-aligned boxes around the camera, in metres (x right, y down, z forward). Surfaces are
/// numbered 6 * box + 2 * axis + side; box 0 is the room itself, seen from inside. Every ray hits something.
class Scene {
public:
    Scene();

    /// Moves what moves to where it is at that time.
    void setTime(double seconds);

    [[nodiscard]] std::span<const Surface> surfaces() const { return allSurfaces; }

    /// The nearest hits of many rays from one eye; dx, dy, dz, distance and surface have the same length.
    struct Rays {
        std::span<const float> dx;
        std::span<const float> dy;
        std::span<const float> dz;
        std::span<float> distance;
        std::span<int32_t> surface;
    };
    void trace(const Vector3& eye, const Rays& rays) const;

    /// The nearest hit of one ray among the boxes to which the given surfaces belong.
    [[nodiscard]] Hit traceAmong(const Vector3& eye, const Vector3& direction,
                                 std::span<const int32_t, 4> surfaces) const;

private:
    struct Box {
        Vector3 low;
        Vector3 high;
    };
    void addBox(const Box& box, TextureName texture, float texelsPerMetre);
    void fitTexture(std::size_t box, TextureName texture);
    void placeCart(float x);

    std::shared_ptr<const TextureSet> textureSet;
    std::vector<Box> boxes;
    std::vector<Surface> allSurfaces;
    std::size_t cartIndex = 0;
};

}  // namespace oru::virtual_bus
