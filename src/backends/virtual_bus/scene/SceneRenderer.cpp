#include "backends/virtual_bus/scene/SceneRenderer.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace oru::virtual_bus {
namespace {

constexpr int kCell = SceneRenderer::kCell;
constexpr float kPerCell = 1.0F / static_cast<float>(kCell);
constexpr uint32_t kFirstPixel = 0xFF00FFFFU;  // luma of the first pixel and the chroma of the pair

float component(const Vector3& v, int axis) {
    return axis == 0 ? v.x : (axis == 1 ? v.y : v.z);
}

/// The texture level where a squared texel step per pixel comes closest to one.
std::size_t levelFor(float squaredStep, const Texture& texture) {
    const auto exponent = static_cast<int>((std::bit_cast<uint32_t>(2.0F * squaredStep) >> 23U) & 0xFFU) - 127;
    const int last = static_cast<int>(texture.levels.size()) - 1;
    return static_cast<std::size_t>(std::clamp(exponent >> 1, 0, last));
}

/// A texel position as a fraction of a whole turn of the repeating texture: 2^32 is one turn, so that wrapping is free.
uint32_t turn(float texels, float turnsPerTexel) {
    // A lens that sends a ray to infinity gives a texel, too.
    constexpr float kFarthest = 4e18F;
    const float turns = texels * turnsPerTexel;
    return static_cast<uint32_t>(static_cast<int64_t>(turns > -kFarthest && turns < kFarthest ? turns : 0.0F));
}

float turnsPerTexel(const Texture& texture) {
    return 4294967296.0F / static_cast<float>(texture.size);
}

uint32_t texelAt(const Texture::Level& level, uint32_t u, uint32_t v) {
    const auto shift = static_cast<unsigned>(32 - level.log2_size);
    return level.texels[((v >> shift) << static_cast<unsigned>(level.log2_size)) | (u >> shift)];
}

void storePair(unsigned char* to, uint32_t first, uint32_t second) {
    const uint32_t pair = (first & kFirstPixel) | (second & ~kFirstPixel);
    std::memcpy(to, &pair, sizeof pair);
}

/// Texture position at a cell's upper left corner with its steps, all in turns.
struct CellWalk {
    uint32_t u, v;                // start of the row
    uint32_t right_u, right_v;    // per pixel
    uint32_t down_u, down_v;      // per row
    uint32_t change_u, change_v;  // of the step per pixel, per row
};

// The size is a template argument, so that the inner loop shifts by constants.
template <unsigned kLog2Size>
void walkCell(const uint32_t* texels, CellWalk walk, unsigned char* pixels, std::size_t rowBytes) {
    constexpr unsigned kShift = 32 - kLog2Size;
    const auto at = [texels](uint32_t u, uint32_t v) { return texels[((v >> kShift) << kLog2Size) | (u >> kShift)]; };
    for (int row = 0; row < kCell; ++row) {
        uint32_t u = walk.u;
        uint32_t v = walk.v;
        for (int pair = 0; pair < kCell / 2; ++pair) {
            const uint32_t first = at(u, v);
            const uint32_t second = at(u + walk.right_u, v + walk.right_v);
            storePair(pixels + pair * 4, first, second);
            u += 2 * walk.right_u;
            v += 2 * walk.right_v;
        }
        walk.u += walk.down_u;
        walk.v += walk.down_v;
        walk.right_u += walk.change_u;
        walk.right_v += walk.change_v;
        pixels += rowBytes;
    }
}

using CellWalker = void (*)(const uint32_t*, CellWalk, unsigned char*, std::size_t);
constexpr std::array<CellWalker, 11> kWalkers{nullptr,     nullptr,     walkCell<2>, walkCell<3>,
                                              walkCell<4>, walkCell<5>, walkCell<6>, walkCell<7>,
                                              walkCell<8>, walkCell<9>, walkCell<10>};

}  // namespace

SceneRenderer::SceneRenderer(const Lens& lens, int width, int height)
    : imageWidth(width),
      imageHeight(height),
      columns(width / kCell + 1),
      pixelAngle(1.0F / static_cast<float>(lens.fx)) {
    buildRays(lens);
    for (CornerRow* row : {&upper, &lower}) {
        const auto count = static_cast<std::size_t>(columns);
        for (auto* values : {&row->dx, &row->dy, &row->dz, &row->distance, &row->u, &row->v}) {
            values->resize(count);
        }
        row->surface.resize(count);
    }
}

void SceneRenderer::buildRays(const Lens& lens) {
    const int rows = imageHeight / kCell + 1;
    rayX.reserve(static_cast<std::size_t>(rows) * static_cast<std::size_t>(columns));
    rayY.reserve(rayX.capacity());
    for (int row = 0; row < rows; ++row) {
        for (int column = 0; column < columns; ++column) {
            const Point pixel{static_cast<double>(column * kCell), static_cast<double>(row * kCell)};
            // A pixel where the lens folds over keeps the nearest direction found.
            const Point direction = lens.undistort(lens.onPlane(pixel)).ray;
            rayX.push_back(static_cast<float>(direction.x));
            rayY.push_back(static_cast<float>(direction.y));
        }
    }
}

void SceneRenderer::begin(const View& view, double seconds) {
    currentView = view;
    hallScene.setTime(seconds);
    traceRow(0, lower);
}

void SceneRenderer::traceRow(int row, CornerRow& corners) {
    const auto count = static_cast<std::size_t>(columns);
    const float* x = &rayX[static_cast<std::size_t>(row) * count];
    const float* y = &rayY[static_cast<std::size_t>(row) * count];
    const auto& r = currentView.rows;
    for (std::size_t i = 0; i < count; ++i) {
        corners.dx[i] = r[0][0] * x[i] + r[0][1] * y[i] + r[0][2];
        corners.dy[i] = r[1][0] * x[i] + r[1][1] * y[i] + r[1][2];
        corners.dz[i] = r[2][0] * x[i] + r[2][1] * y[i] + r[2][2];
    }
    hallScene.trace(currentView.eye, {corners.dx, corners.dy, corners.dz, corners.distance, corners.surface});
    const auto surfaces = hallScene.surfaces();
    for (std::size_t i = 0; i < count; ++i) {
        const Surface& surface = surfaces[static_cast<std::size_t>(corners.surface[i])];
        const Vector3 point{currentView.eye.x + corners.distance[i] * corners.dx[i],
                            currentView.eye.y + corners.distance[i] * corners.dy[i],
                            currentView.eye.z + corners.distance[i] * corners.dz[i]};
        corners.u[i] = (component(point, surface.u_axis) - surface.u_origin) * surface.u_scale;
        corners.v[i] = (component(point, surface.v_axis) - surface.v_origin) * surface.v_scale;
    }
}

void SceneRenderer::drawBand(int band, unsigned char* pixels) {
    std::swap(upper, lower);
    traceRow(band + 1, lower);
    for (int column = 0; column + 1 < columns; ++column) {
        const auto i = static_cast<std::size_t>(column);
        const int32_t surface = upper.surface[i];
        unsigned char* cell = pixels + static_cast<std::size_t>(column) * kCell * 2;
        if (surface == upper.surface[i + 1] && surface == lower.surface[i] && surface == lower.surface[i + 1]) {
            drawUniform(column, cell);
        } else {
            drawMixed(column, cell);
        }
    }
}

void SceneRenderer::drawUniform(int column, unsigned char* pixels) const {
    const auto i = static_cast<std::size_t>(column);
    const Texture& texture = *hallScene.surfaces()[static_cast<std::size_t>(upper.surface[i])].texture;
    const float rightU = upper.u[i + 1] - upper.u[i];
    const float rightV = upper.v[i + 1] - upper.v[i];
    const float downU = lower.u[i] - upper.u[i];
    const float downV = lower.v[i] - upper.v[i];
    const float step = std::max(rightU * rightU + rightV * rightV, downU * downU + downV * downV);
    const Texture::Level& level = texture.levels[levelFor(step * kPerCell * kPerCell, texture)];
    const float scale = turnsPerTexel(texture);
    const float perPixel = scale * kPerCell;
    const float change = perPixel * kPerCell;
    const CellWalk walk{turn(upper.u[i], scale),
                        turn(upper.v[i], scale),
                        turn(rightU, perPixel),
                        turn(rightV, perPixel),
                        turn(downU, perPixel),
                        turn(downV, perPixel),
                        turn(lower.u[i + 1] - lower.u[i] - rightU, change),
                        turn(lower.v[i + 1] - lower.v[i] - rightV, change)};
    kWalkers[static_cast<std::size_t>(level.log2_size)](level.texels.data(), walk, pixels,
                                                        static_cast<std::size_t>(imageWidth) * 2);
}

void SceneRenderer::drawMixed(int column, unsigned char* pixels) const {
    const auto i = static_cast<std::size_t>(column);
    const std::array<int32_t, 4> seen{upper.surface[i], upper.surface[i + 1], lower.surface[i], lower.surface[i + 1]};
    for (int row = 0; row < kCell; ++row) {
        const float f = static_cast<float>(row) * kPerCell;
        const auto mix = [&](const std::vector<float>& above, const std::vector<float>& below, std::size_t at) {
            return above[at] + f * (below[at] - above[at]);
        };
        const Vector3 start{mix(upper.dx, lower.dx, i), mix(upper.dy, lower.dy, i), mix(upper.dz, lower.dz, i)};
        const Vector3 end{mix(upper.dx, lower.dx, i + 1), mix(upper.dy, lower.dy, i + 1),
                          mix(upper.dz, lower.dz, i + 1)};
        const Vector3 step{(end.x - start.x) * kPerCell, (end.y - start.y) * kPerCell, (end.z - start.z) * kPerCell};
        std::array<uint32_t, kCell> texels{};
        drawMixedRow(start, step, seen, texels);
        for (std::size_t pair = 0; pair < kCell / 2; ++pair) {
            storePair(pixels + pair * 4, texels[2 * pair], texels[2 * pair + 1]);
        }
        pixels += static_cast<std::size_t>(imageWidth) * 2;
    }
}

void SceneRenderer::drawMixedRow(const Vector3& start, const Vector3& step, std::span<const int32_t, 4> seen,
                                 std::span<uint32_t, kCell> texels) const {
    const auto at = [&](int pixel) {
        const auto n = static_cast<float>(pixel);
        return Vector3{start.x + n * step.x, start.y + n * step.y, start.z + n * step.z};
    };
    const Vector3 end = at(kCell - 1);
    const Hit first = hallScene.traceAmong(currentView.eye, start, seen);
    const Hit last = hallScene.traceAmong(currentView.eye, end, seen);
    if (first.surface == last.surface) {
        const Footprint from = footprint(first, start);
        const Footprint to = footprint(last, end);
        const auto stepU = static_cast<uint32_t>(static_cast<int32_t>(to.u - from.u) / (kCell - 1));
        const auto stepV = static_cast<uint32_t>(static_cast<int32_t>(to.v - from.v) / (kCell - 1));
        for (std::size_t pixel = 0; pixel < kCell; ++pixel) {
            const auto n = static_cast<uint32_t>(pixel);
            texels[pixel] = texelAt(*from.level, from.u + n * stepU, from.v + n * stepV);
        }
        return;
    }
    for (int pixel = 0; pixel < kCell; ++pixel) {
        const Vector3 direction = at(pixel);
        const Footprint print = footprint(hallScene.traceAmong(currentView.eye, direction, seen), direction);
        texels[static_cast<std::size_t>(pixel)] = texelAt(*print.level, print.u, print.v);
    }
}

SceneRenderer::Footprint SceneRenderer::footprint(const Hit& hit, const Vector3& direction) const {
    const Surface& surface = hallScene.surfaces()[static_cast<std::size_t>(hit.surface)];
    const Texture& texture = *surface.texture;
    const Vector3 point{currentView.eye.x + hit.distance * direction.x, currentView.eye.y + hit.distance * direction.y,
                        currentView.eye.z + hit.distance * direction.z};
    const float u = (component(point, surface.u_axis) - surface.u_origin) * surface.u_scale;
    const float v = (component(point, surface.v_axis) - surface.v_origin) * surface.v_scale;
    // Texels a pixel: distance over focal length, stretched by how obliquely the surface is seen.
    const float facing = std::abs(component(direction, (hit.surface % 6) / 2));
    const float step =
        hit.distance * pixelAngle * std::max(surface.u_scale, surface.v_scale) / std::clamp(facing, 0.2F, 1.0F);
    const float scale = turnsPerTexel(texture);
    return {&texture.levels[levelFor(step * step, texture)], turn(u, scale), turn(v, scale)};
}

}  // namespace oru::virtual_bus
