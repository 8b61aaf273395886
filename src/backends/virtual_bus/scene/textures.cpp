#include "backends/virtual_bus/scene/textures.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>

#include "utils/Mutex.hpp"

namespace oru::virtual_bus {
namespace {

struct Colour {
    float red;
    float green;
    float blue;
};

Colour operator*(Colour colour, float factor) {
    return {colour.red * factor, colour.green * factor, colour.blue * factor};
}

constexpr int kNoiseSize = 256;

/// Smooth repeating noise in -1..1, looked up by position in 0..1.
class Noise {
public:
    Noise() : values(static_cast<std::size_t>(kNoiseSize) * kNoiseSize) {
        for (int y = 0; y < kNoiseSize; ++y) {
            for (int x = 0; x < kNoiseSize; ++x) {
                values[static_cast<std::size_t>(y * kNoiseSize + x)] =
                    0.5F * octave(x, y, 8) + 0.3F * octave(x, y, 32) + 0.2F * octave(x, y, 128);
            }
        }
    }

    [[nodiscard]] float at(float u, float v) const {
        const int x = static_cast<int>(u * kNoiseSize) & (kNoiseSize - 1);
        const int y = static_cast<int>(v * kNoiseSize) & (kNoiseSize - 1);
        return values[static_cast<std::size_t>(y * kNoiseSize + x)];
    }

private:
    static float lattice(int x, int y, int cells) {
        const auto column = static_cast<uint32_t>(x % cells);
        const auto row = static_cast<uint32_t>(y % cells);
        uint32_t hash = column * 374761393U + row * 668265263U + static_cast<uint32_t>(cells) * 2246822519U;
        hash = (hash ^ (hash >> 13U)) * 1274126177U;
        return static_cast<float>((hash ^ (hash >> 16U)) & 0xFFFFU) / 32767.5F - 1.0F;
    }

    static float octave(int x, int y, int cells) {
        const int step = kNoiseSize / cells;
        const float fx = static_cast<float>(x % step) / static_cast<float>(step);
        const float fy = static_cast<float>(y % step) / static_cast<float>(step);
        const int cx = x / step;
        const int cy = y / step;
        const float top = std::lerp(lattice(cx, cy, cells), lattice(cx + 1, cy, cells), fx);
        const float bottom = std::lerp(lattice(cx, cy + 1, cells), lattice(cx + 1, cy + 1, cells), fx);
        return std::lerp(top, bottom, fy);
    }

    std::vector<float> values;
};

float fraction(float value) {
    return value - std::floor(value);
}

/// Distance to the nearest border of a cell of size 1.
float border(float u, float v) {
    const float x = fraction(u);
    const float y = fraction(v);
    return std::min({x, 1.0F - x, y, 1.0F - y});
}

bool odd(float value) {
    return (static_cast<int>(std::floor(value)) & 1) != 0;
}

Colour floorColour(float u, float v, const Noise& noise) {
    if (border(4.0F * u, 4.0F * v) < 0.02F) {
        return {0.25F, 0.24F, 0.22F};
    }
    const Colour tile = odd(4.0F * u) != odd(4.0F * v) ? Colour{0.72F, 0.62F, 0.45F} : Colour{0.20F, 0.31F, 0.45F};
    return tile * (1.0F + 0.12F * noise.at(u, v));
}

Colour brickColour(float u, float v, const Noise& noise) {
    const float row = 16.0F * v;
    const float column = 8.0F * u + (odd(row) ? 0.5F : 0.0F);
    const float x = fraction(column);
    const float y = fraction(row);
    if (std::min(x, 1.0F - x) < 0.03F || std::min(y, 1.0F - y) < 0.06F) {
        return Colour{0.66F, 0.63F, 0.58F} * (1.0F + 0.08F * noise.at(u, v));
    }
    const float tone = noise.at(fraction(std::floor(column) * 0.37F), fraction(std::floor(row) * 0.23F));
    return Colour{0.62F, 0.27F, 0.18F} * (1.0F + 0.30F * tone + 0.15F * noise.at(u, v));
}

Colour panelColour(float u, float v, const Noise& noise) {
    const float x = fraction(8.0F * u);
    if (x < 0.04F || std::abs(v - 0.5F) < 0.006F) {
        return {0.10F, 0.22F, 0.20F};
    }
    const Colour tone = odd(8.0F * u) ? Colour{0.22F, 0.56F, 0.48F} : Colour{0.30F, 0.64F, 0.42F};
    return tone * (0.92F + 0.16F * x + 0.10F * noise.at(u, v));
}

Colour ceilingColour(float u, float v, const Noise& noise) {
    if (border(2.0F * u, 2.0F * v) < 0.02F) {
        return {0.42F, 0.42F, 0.45F};
    }
    const float x = std::abs(fraction(2.0F * u) - 0.5F);
    const float y = std::abs(fraction(2.0F * v) - 0.5F);
    if (x < 0.12F && y < 0.34F && odd(2.0F * u) != odd(2.0F * v)) {
        return {0.98F, 0.97F, 0.90F};
    }
    return Colour{0.70F, 0.71F, 0.74F} * (1.0F + 0.05F * noise.at(u, v));
}

Colour crateColour(float u, float v, const Noise& noise) {
    const float edge = border(u, v);
    const float diagonal = std::abs(u - v);
    const bool frame = edge < 0.10F || diagonal < 0.07F;
    if (std::abs(edge - 0.10F) < 0.008F || (edge > 0.10F && std::abs(diagonal - 0.07F) < 0.008F)) {
        return {0.20F, 0.13F, 0.06F};
    }
    const float grain = noise.at(frame ? u : fraction(0.15F * u), frame ? fraction(0.2F * v) : fraction(3.0F * v));
    const float plank = fraction(6.0F * v) < 0.04F && !frame ? 0.45F : 1.0F;
    return (frame ? Colour{0.80F, 0.58F, 0.28F} : Colour{0.64F, 0.43F, 0.20F}) * (plank * (1.0F + 0.25F * grain));
}

/// A test chart: colour bars, a chessboard, converging lines and rings.
Colour chartColour(float u, float v, const Noise&) {
    static constexpr std::array<Colour, 8> kBars{{{0.90F, 0.90F, 0.90F},
                                                  {0.90F, 0.85F, 0.10F},
                                                  {0.10F, 0.80F, 0.85F},
                                                  {0.15F, 0.75F, 0.20F},
                                                  {0.80F, 0.20F, 0.75F},
                                                  {0.85F, 0.12F, 0.12F},
                                                  {0.15F, 0.20F, 0.80F},
                                                  {0.10F, 0.10F, 0.10F}}};
    constexpr Colour kWhite{0.93F, 0.93F, 0.93F};
    constexpr Colour kBlack{0.06F, 0.06F, 0.06F};
    if (border(u, v) < 0.02F) {
        return kBlack;
    }
    if (v < 0.28F) {
        return kBars[static_cast<std::size_t>(u * 8.0F) & 7U];
    }
    if (u < 0.5F) {
        return odd(u * 16.0F) != odd(v * 16.0F) ? kBlack : kWhite;
    }
    const float x = u - 0.75F;
    const float y = v - 0.64F;
    const float radius = std::sqrt(x * x + y * y);
    if (radius < 0.2F) {
        return odd(radius * 50.0F) ? kBlack : kWhite;
    }
    return odd(16.0F * x / (v - 0.1F)) ? Colour{0.70F, 0.25F, 0.20F} : kWhite;
}

Colour columnColour(float u, float v, const Noise& noise) {
    if (odd(8.0F * v) && fraction(8.0F * v) < 0.4F) {
        return Colour{0.82F, 0.16F, 0.14F} * (1.0F + 0.08F * noise.at(u, v));
    }
    const float flute = 0.80F + 0.20F * std::sin(2.0F * std::numbers::pi_v<float> * 12.0F * u);
    return Colour{0.80F, 0.80F, 0.84F} * (flute * (1.0F + 0.06F * noise.at(u, v)));
}

Colour cartColour(float u, float v, const Noise&) {
    if (border(u, v) < 0.05F) {
        return {0.08F, 0.08F, 0.10F};
    }
    return odd(6.0F * (u + v)) ? Colour{0.95F, 0.78F, 0.08F} : Colour{0.10F, 0.10F, 0.12F};
}

uint32_t toTexel(Colour colour) {
    const float r = std::clamp(colour.red, 0.0F, 1.0F);
    const float g = std::clamp(colour.green, 0.0F, 1.0F);
    const float b = std::clamp(colour.blue, 0.0F, 1.0F);
    // ITU-R BT.601, video range.
    const auto y = static_cast<uint32_t>(16.5F + 65.481F * r + 128.553F * g + 24.966F * b);
    const auto u = static_cast<uint32_t>(128.5F - 37.797F * r - 74.203F * g + 112.0F * b);
    const auto v = static_cast<uint32_t>(128.5F + 112.0F * r - 93.786F * g - 18.214F * b);
    return y | (u << 8U) | (y << 16U) | (v << 24U);
}

Texture::Level halve(const Texture::Level& fine) {
    const std::size_t fineSize = std::size_t{1} << static_cast<unsigned>(fine.log2_size);
    const std::size_t size = fineSize / 2;
    Texture::Level coarse;
    coarse.log2_size = fine.log2_size - 1;
    coarse.texels.resize(size * size);
    for (std::size_t y = 0; y < size; ++y) {
        for (std::size_t x = 0; x < size; ++x) {
            const uint32_t* from = &fine.texels[2 * y * fineSize + 2 * x];
            uint32_t texel = 0;
            for (unsigned shift = 0; shift < 32; shift += 8) {
                const uint32_t sum = ((from[0] >> shift) & 255U) + ((from[1] >> shift) & 255U) +
                                     ((from[fineSize] >> shift) & 255U) + ((from[fineSize + 1] >> shift) & 255U);
                texel |= ((sum + 2U) / 4U) << shift;
            }
            coarse.texels[y * size + x] = texel;
        }
    }
    return coarse;
}

Texture makeTexture(int size, Colour (*colour)(float, float, const Noise&), const Noise& noise) {
    Texture texture;
    texture.size = size;
    Texture::Level finest;
    finest.log2_size = std::countr_zero(static_cast<unsigned>(size));
    finest.texels.resize(static_cast<std::size_t>(size) * static_cast<std::size_t>(size));
    const float step = 1.0F / static_cast<float>(size);
    for (int y = 0; y < size; ++y) {
        for (int x = 0; x < size; ++x) {
            finest.texels[static_cast<std::size_t>(y * size + x)] =
                toTexel(colour((static_cast<float>(x) + 0.5F) * step, (static_cast<float>(y) + 0.5F) * step, noise));
        }
    }
    texture.levels.push_back(std::move(finest));
    while (texture.levels.back().log2_size > 2) {
        texture.levels.push_back(halve(texture.levels.back()));
    }
    return texture;
}

std::shared_ptr<const TextureSet> makeTextures() {
    const Noise noise;
    auto set = std::make_shared<TextureSet>();
    const auto make = [&](TextureName name, int size, Colour (*colour)(float, float, const Noise&)) {
        (*set)[static_cast<std::size_t>(name)] = makeTexture(size, colour, noise);
    };
    make(TextureName::FLOOR, 1024, floorColour);
    make(TextureName::BRICK, 1024, brickColour);
    make(TextureName::PANEL, 1024, panelColour);
    make(TextureName::CEILING, 512, ceilingColour);
    make(TextureName::CRATE, 512, crateColour);
    make(TextureName::CHART, 1024, chartColour);
    make(TextureName::COLUMN, 512, columnColour);
    make(TextureName::CART, 256, cartColour);
    return set;
}

}  // namespace

std::shared_ptr<const TextureSet> sceneTextures() {
    static Mutex mutex;
    static std::weak_ptr<const TextureSet> shared;
    const MutexLock lock(mutex);
    auto textures = shared.lock();
    if (!textures) {
        textures = makeTextures();
        shared = textures;
    }
    return textures;
}

}  // namespace oru::virtual_bus
