#include "backends/virtual_bus/scene/scene.hpp"

#include <algorithm>
#include <cmath>

namespace oru::virtual_bus {
namespace {

constexpr Vector3 kRoomLow{-4.0F, -1.6F, -5.0F};
constexpr Vector3 kRoomHigh{4.0F, 1.6F, 5.0F};
constexpr float kCartHalfWidth = 0.35F;

float component(const Vector3& v, int axis) {
    return axis == 0 ? v.x : (axis == 1 ? v.y : v.z);
}

float smaller(float a, float b) {
    return a < b ? a : b;
}
float larger(float a, float b) {
    return a > b ? a : b;
}

/// The wall of the room that a ray from inside reaches.
/// From inside no wall lies behind: a ray along one meets it at infinity, whatever the sign of its zero.
Hit hitRoom(const Vector3& low, const Vector3& high, const Vector3& eye, const Vector3& d) {
    const float tx = std::abs(((d.x > 0.0F ? high.x : low.x) - eye.x) / d.x);
    const float ty = std::abs(((d.y > 0.0F ? high.y : low.y) - eye.y) / d.y);
    const float tz = std::abs(((d.z > 0.0F ? high.z : low.z) - eye.z) / d.z);
    const int sx = d.x > 0.0F ? 1 : 0;
    const int sy = d.y > 0.0F ? 3 : 2;
    const int sz = d.z > 0.0F ? 5 : 4;
    const float txy = smaller(tx, ty);
    return {smaller(txy, tz), tz < txy ? sz : (ty < tx ? sy : sx)};
}

}  // namespace

Scene::Scene() : textureSet(sceneTextures()) {
    addBox({kRoomLow, kRoomHigh}, TextureName::BRICK, 512.0F);
    const auto paint = [this](std::size_t surface, TextureName name, float texelsPerMetre) {
        allSurfaces[surface].texture = &(*textureSet)[static_cast<std::size_t>(name)];
        allSurfaces[surface].u_scale = texelsPerMetre;
        allSurfaces[surface].v_scale = texelsPerMetre;
    };
    paint(1, TextureName::PANEL, 512.0F);
    paint(2, TextureName::CEILING, 256.0F);
    paint(3, TextureName::FLOOR, 512.0F);
    paint(4, TextureName::PANEL, 512.0F);

    addBox({{-2.5F, -1.6F, 1.0F}, {-2.1F, 1.6F, 1.4F}}, TextureName::COLUMN, 256.0F);
    addBox({{2.3F, -1.6F, 2.2F}, {2.7F, 1.6F, 2.6F}}, TextureName::COLUMN, 256.0F);
    addBox({{-4.0F, -1.6F, 3.2F}, {4.0F, -1.3F, 3.5F}}, TextureName::COLUMN, 256.0F);
    addBox({{-1.0F, 0.7F, 1.4F}, {-0.1F, 1.6F, 2.3F}}, TextureName::CRATE, 0.0F);
    addBox({{1.1F, 0.95F, 0.6F}, {1.75F, 1.6F, 1.25F}}, TextureName::CRATE, 0.0F);
    addBox({{-3.9F, 0.4F, 3.4F}, {-2.7F, 1.6F, 4.6F}}, TextureName::CRATE, 0.0F);
    addBox({{-1.3F, -1.0F, 4.93F}, {1.3F, 0.8F, 5.0F}}, TextureName::CHART, 0.0F);
    addBox({{3.93F, -0.9F, -0.6F}, {4.0F, 0.7F, 1.0F}}, TextureName::CHART, 0.0F);
    addBox({{-4.0F, -0.9F, -1.6F}, {-3.93F, 0.7F, 0.0F}}, TextureName::CHART, 0.0F);
    cartIndex = boxes.size();
    addBox({{-kCartHalfWidth, 1.0F, 2.75F}, {kCartHalfWidth, 1.5F, 3.1F}}, TextureName::CART, 512.0F);
    for (std::size_t box = 4; box < cartIndex; ++box) {
        fitTexture(box, box < 7 ? TextureName::CRATE : TextureName::CHART);
    }
}

void Scene::addBox(const Box& box, TextureName texture, float texelsPerMetre) {
    boxes.push_back(box);
    for (int axis = 0; axis < 3; ++axis) {
        for (int side = 0; side < 2; ++side) {
            Surface surface;
            surface.texture = &(*textureSet)[static_cast<std::size_t>(texture)];
            surface.u_axis = axis == 0 ? 2 : 0;
            surface.v_axis = axis == 1 ? 2 : 1;
            surface.u_origin = component(box.low, surface.u_axis);
            surface.v_origin = component(box.low, surface.v_axis);
            surface.u_scale = texelsPerMetre;
            surface.v_scale = texelsPerMetre;
            allSurfaces.push_back(surface);
        }
    }
}

void Scene::fitTexture(std::size_t box, TextureName texture) {
    const auto size = static_cast<float>((*textureSet)[static_cast<std::size_t>(texture)].size);
    for (std::size_t i = 6 * box; i < 6 * box + 6; ++i) {
        Surface& surface = allSurfaces[i];
        surface.u_scale = size / (component(boxes[box].high, surface.u_axis) - surface.u_origin);
        surface.v_scale = size / (component(boxes[box].high, surface.v_axis) - surface.v_origin);
    }
}

void Scene::setTime(double seconds) {
    placeCart(static_cast<float>(1.6 * std::sin(0.8 * seconds)));
}

void Scene::placeCart(float x) {
    boxes[cartIndex].low.x = x - kCartHalfWidth;
    boxes[cartIndex].high.x = x + kCartHalfWidth;
    for (std::size_t i = 6 * cartIndex; i < 6 * cartIndex + 6; ++i) {
        if (allSurfaces[i].u_axis == 0) {
            allSurfaces[i].u_origin = x - kCartHalfWidth;
        }
    }
}

void Scene::trace(const Vector3& eye, const Rays& rays) const {
    const std::size_t count = rays.dx.size();
    const float* dx = rays.dx.data();
    const float* dy = rays.dy.data();
    const float* dz = rays.dz.data();
    float* distance = rays.distance.data();
    int32_t* surface = rays.surface.data();
    for (std::size_t i = 0; i < count; ++i) {
        const Hit hit = hitRoom(boxes[0].low, boxes[0].high, eye, {dx[i], dy[i], dz[i]});
        distance[i] = hit.distance;
        surface[i] = hit.surface;
    }
    for (std::size_t box = 1; box < boxes.size(); ++box) {
        const Vector3 low{boxes[box].low.x - eye.x, boxes[box].low.y - eye.y, boxes[box].low.z - eye.z};
        const Vector3 high{boxes[box].high.x - eye.x, boxes[box].high.y - eye.y, boxes[box].high.z - eye.z};
        const auto base = static_cast<int32_t>(6 * box);
        for (std::size_t i = 0; i < count; ++i) {
            const float ix = 1.0F / dx[i];
            const float iy = 1.0F / dy[i];
            const float iz = 1.0F / dz[i];
            const float nx = smaller(low.x * ix, high.x * ix);
            const float ny = smaller(low.y * iy, high.y * iy);
            const float nz = smaller(low.z * iz, high.z * iz);
            const float fx = larger(low.x * ix, high.x * ix);
            const float fy = larger(low.y * iy, high.y * iy);
            const float fz = larger(low.z * iz, high.z * iz);
            const float nxy = larger(nx, ny);
            const float near = larger(nxy, nz);
            const float far = smaller(smaller(fx, fy), fz);
            const int32_t sx = base + (dx[i] > 0.0F ? 0 : 1);
            const int32_t sy = base + (dy[i] > 0.0F ? 2 : 3);
            const int32_t sz = base + (dz[i] > 0.0F ? 4 : 5);
            const int32_t side = nz > nxy ? sz : (ny > nx ? sy : sx);
            const bool hit = (near > 0.0F) & (near < far) & (near < distance[i]);
            distance[i] = hit ? near : distance[i];
            surface[i] = hit ? side : surface[i];
        }
    }
}

Hit Scene::traceAmong(const Vector3& eye, const Vector3& d, std::span<const int32_t, 4> surfaces) const {
    Hit best = hitRoom(boxes[0].low, boxes[0].high, eye, d);
    std::size_t previous = 0;
    for (const int32_t candidate : surfaces) {
        const auto box = static_cast<std::size_t>(candidate) / 6;
        if (box == previous || box == 0) {
            continue;
        }
        previous = box;
        const Box& b = boxes[box];
        const Vector3 inverse{1.0F / d.x, 1.0F / d.y, 1.0F / d.z};
        const float x1 = (b.low.x - eye.x) * inverse.x;
        const float x2 = (b.high.x - eye.x) * inverse.x;
        const float y1 = (b.low.y - eye.y) * inverse.y;
        const float y2 = (b.high.y - eye.y) * inverse.y;
        const float z1 = (b.low.z - eye.z) * inverse.z;
        const float z2 = (b.high.z - eye.z) * inverse.z;
        const float nx = smaller(x1, x2);
        const float ny = smaller(y1, y2);
        const float nz = smaller(z1, z2);
        const float near = larger(larger(nx, ny), nz);
        const float far = smaller(smaller(larger(x1, x2), larger(y1, y2)), larger(z1, z2));
        if (near > 0.0F && near < far && near < best.distance) {
            const int axis = nz > larger(nx, ny) ? 2 : (ny > nx ? 1 : 0);
            const int side = component(d, axis) > 0.0F ? 0 : 1;
            best = {near, static_cast<int>(6 * box) + 2 * axis + side};
        }
    }
    return best;
}

}  // namespace oru::virtual_bus
