#include "backends/virtual_bus/scene_renderer.hpp"

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
std::size_t levelFor(float squared_step, const Texture& texture) {
    const auto exponent = static_cast<int>((std::bit_cast<uint32_t>(2.0F * squared_step) >> 23U) & 0xFFU) - 127;
    const int last = static_cast<int>(texture.levels.size()) - 1;
    return static_cast<std::size_t>(std::clamp(exponent >> 1, 0, last));
}

/// A texel position as a fraction of a whole turn of the repeating texture: 2^32 is one turn, so that wrapping is free.
uint32_t turn(float texels, float turns_per_texel) {
    return static_cast<uint32_t>(static_cast<int64_t>(texels * turns_per_texel));
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
void walkCell(const uint32_t* texels, CellWalk walk, unsigned char* pixels, std::size_t row_bytes) {
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
        pixels += row_bytes;
    }
}

using CellWalker = void (*)(const uint32_t*, CellWalk, unsigned char*, std::size_t);
constexpr std::array<CellWalker, 11> kWalkers{nullptr,     nullptr,     walkCell<2>, walkCell<3>,
                                              walkCell<4>, walkCell<5>, walkCell<6>, walkCell<7>,
                                              walkCell<8>, walkCell<9>, walkCell<10>};

}  // namespace

SceneRenderer::SceneRenderer(const Lens& lens, int width, int height)
    : width_(width), height_(height), columns_(width / kCell + 1), pixel_angle_(1.0F / static_cast<float>(lens.fx)) {
    buildRays(lens);
    for (CornerRow* row : {&upper_, &lower_}) {
        const auto count = static_cast<std::size_t>(columns_);
        for (auto* values : {&row->dx, &row->dy, &row->dz, &row->distance, &row->u, &row->v}) {
            values->resize(count);
        }
        row->surface.resize(count);
    }
}

void SceneRenderer::buildRays(const Lens& lens) {
    const int rows = height_ / kCell + 1;
    ray_x_.reserve(static_cast<std::size_t>(rows) * static_cast<std::size_t>(columns_));
    ray_y_.reserve(ray_x_.capacity());
    for (int row = 0; row < rows; ++row) {
        for (int column = 0; column < columns_; ++column) {
            Point direction;
            // A pixel where the lens folds over keeps the nearest direction found.
            (void)undistortPixel(lens, {static_cast<double>(column * kCell), static_cast<double>(row * kCell)},
                                 direction);
            ray_x_.push_back(static_cast<float>(direction.x));
            ray_y_.push_back(static_cast<float>(direction.y));
        }
    }
}

void SceneRenderer::begin(const View& view, double seconds) {
    view_ = view;
    scene_.setTime(seconds);
    traceRow(0, lower_);
}

void SceneRenderer::traceRow(int row, CornerRow& corners) {
    const auto count = static_cast<std::size_t>(columns_);
    const float* x = &ray_x_[static_cast<std::size_t>(row) * count];
    const float* y = &ray_y_[static_cast<std::size_t>(row) * count];
    const auto& r = view_.rows;
    for (std::size_t i = 0; i < count; ++i) {
        corners.dx[i] = r[0][0] * x[i] + r[0][1] * y[i] + r[0][2];
        corners.dy[i] = r[1][0] * x[i] + r[1][1] * y[i] + r[1][2];
        corners.dz[i] = r[2][0] * x[i] + r[2][1] * y[i] + r[2][2];
    }
    scene_.trace(view_.eye, {corners.dx, corners.dy, corners.dz, corners.distance, corners.surface});
    const auto surfaces = scene_.surfaces();
    for (std::size_t i = 0; i < count; ++i) {
        const Surface& surface = surfaces[static_cast<std::size_t>(corners.surface[i])];
        const Vector3 point{view_.eye.x + corners.distance[i] * corners.dx[i],
                            view_.eye.y + corners.distance[i] * corners.dy[i],
                            view_.eye.z + corners.distance[i] * corners.dz[i]};
        corners.u[i] = (component(point, surface.u_axis) - surface.u_origin) * surface.u_scale;
        corners.v[i] = (component(point, surface.v_axis) - surface.v_origin) * surface.v_scale;
    }
}

void SceneRenderer::drawBand(int band, unsigned char* pixels) {
    std::swap(upper_, lower_);
    traceRow(band + 1, lower_);
    for (int column = 0; column + 1 < columns_; ++column) {
        const auto i = static_cast<std::size_t>(column);
        const int32_t surface = upper_.surface[i];
        unsigned char* cell = pixels + static_cast<std::size_t>(column) * kCell * 2;
        if (surface == upper_.surface[i + 1] && surface == lower_.surface[i] && surface == lower_.surface[i + 1]) {
            drawUniform(column, cell);
        } else {
            drawMixed(column, cell);
        }
    }
}

void SceneRenderer::drawUniform(int column, unsigned char* pixels) const {
    const auto i = static_cast<std::size_t>(column);
    const Texture& texture = *scene_.surfaces()[static_cast<std::size_t>(upper_.surface[i])].texture;
    const float right_u = upper_.u[i + 1] - upper_.u[i];
    const float right_v = upper_.v[i + 1] - upper_.v[i];
    const float down_u = lower_.u[i] - upper_.u[i];
    const float down_v = lower_.v[i] - upper_.v[i];
    const float step = std::max(right_u * right_u + right_v * right_v, down_u * down_u + down_v * down_v);
    const Texture::Level& level = texture.levels[levelFor(step * kPerCell * kPerCell, texture)];
    const float scale = turnsPerTexel(texture);
    const float per_pixel = scale * kPerCell;
    const float change = per_pixel * kPerCell;
    const CellWalk walk{turn(upper_.u[i], scale),
                        turn(upper_.v[i], scale),
                        turn(right_u, per_pixel),
                        turn(right_v, per_pixel),
                        turn(down_u, per_pixel),
                        turn(down_v, per_pixel),
                        turn(lower_.u[i + 1] - lower_.u[i] - right_u, change),
                        turn(lower_.v[i + 1] - lower_.v[i] - right_v, change)};
    kWalkers[static_cast<std::size_t>(level.log2_size)](level.texels.data(), walk, pixels,
                                                        static_cast<std::size_t>(width_) * 2);
}

void SceneRenderer::drawMixed(int column, unsigned char* pixels) const {
    const auto i = static_cast<std::size_t>(column);
    const std::array<int32_t, 4> seen{upper_.surface[i], upper_.surface[i + 1], lower_.surface[i],
                                      lower_.surface[i + 1]};
    for (int row = 0; row < kCell; ++row) {
        const float f = static_cast<float>(row) * kPerCell;
        const auto mix = [&](const std::vector<float>& above, const std::vector<float>& below, std::size_t at) {
            return above[at] + f * (below[at] - above[at]);
        };
        const Vector3 start{mix(upper_.dx, lower_.dx, i), mix(upper_.dy, lower_.dy, i), mix(upper_.dz, lower_.dz, i)};
        const Vector3 end{mix(upper_.dx, lower_.dx, i + 1), mix(upper_.dy, lower_.dy, i + 1),
                          mix(upper_.dz, lower_.dz, i + 1)};
        const Vector3 step{(end.x - start.x) * kPerCell, (end.y - start.y) * kPerCell, (end.z - start.z) * kPerCell};
        std::array<uint32_t, kCell> texels{};
        drawMixedRow(start, step, seen, texels);
        for (std::size_t pair = 0; pair < kCell / 2; ++pair) {
            storePair(pixels + pair * 4, texels[2 * pair], texels[2 * pair + 1]);
        }
        pixels += static_cast<std::size_t>(width_) * 2;
    }
}

void SceneRenderer::drawMixedRow(const Vector3& start, const Vector3& step, std::span<const int32_t, 4> seen,
                                 std::span<uint32_t, kCell> texels) const {
    const auto at = [&](int pixel) {
        const auto n = static_cast<float>(pixel);
        return Vector3{start.x + n * step.x, start.y + n * step.y, start.z + n * step.z};
    };
    const Vector3 end = at(kCell - 1);
    const Hit first = scene_.traceAmong(view_.eye, start, seen);
    const Hit last = scene_.traceAmong(view_.eye, end, seen);
    if (first.surface == last.surface) {
        const Footprint from = footprint(first, start);
        const Footprint to = footprint(last, end);
        const auto step_u = static_cast<uint32_t>(static_cast<int32_t>(to.u - from.u) / (kCell - 1));
        const auto step_v = static_cast<uint32_t>(static_cast<int32_t>(to.v - from.v) / (kCell - 1));
        for (std::size_t pixel = 0; pixel < kCell; ++pixel) {
            const auto n = static_cast<uint32_t>(pixel);
            texels[pixel] = texelAt(*from.level, from.u + n * step_u, from.v + n * step_v);
        }
        return;
    }
    for (int pixel = 0; pixel < kCell; ++pixel) {
        const Vector3 direction = at(pixel);
        const Footprint print = footprint(scene_.traceAmong(view_.eye, direction, seen), direction);
        texels[static_cast<std::size_t>(pixel)] = texelAt(*print.level, print.u, print.v);
    }
}

SceneRenderer::Footprint SceneRenderer::footprint(const Hit& hit, const Vector3& direction) const {
    const Surface& surface = scene_.surfaces()[static_cast<std::size_t>(hit.surface)];
    const Texture& texture = *surface.texture;
    const Vector3 point{view_.eye.x + hit.distance * direction.x, view_.eye.y + hit.distance * direction.y,
                        view_.eye.z + hit.distance * direction.z};
    const float u = (component(point, surface.u_axis) - surface.u_origin) * surface.u_scale;
    const float v = (component(point, surface.v_axis) - surface.v_origin) * surface.v_scale;
    // Texels a pixel: distance over focal length, stretched by how obliquely the surface is seen.
    const float facing = std::abs(component(direction, (hit.surface % 6) / 2));
    const float step =
        hit.distance * pixel_angle_ * std::max(surface.u_scale, surface.v_scale) / std::clamp(facing, 0.2F, 1.0F);
    const float scale = turnsPerTexel(texture);
    return {&texture.levels[levelFor(step * step, texture)], turn(u, scale), turn(v, scale)};
}

}  // namespace oru::virtual_bus
