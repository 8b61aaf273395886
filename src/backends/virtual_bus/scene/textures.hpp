#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

namespace oru::virtual_bus {

/// A square repeating image with its halved copies. A texel is laid out as one YUYV pair of equal pixels (BT.601
/// video range): two neighbouring texels make a pair by masks alone.
struct Texture {
    struct Level {
        std::vector<uint32_t> texels;
        int log2_size = 0;
    };
    std::vector<Level> levels;
    int size = 0;
};

enum class TextureName : int32_t { FLOOR, BRICK, PANEL, CEILING, CRATE, CHART, COLUMN, CART };
inline constexpr int kTextureCount = 8;

using TextureSet = std::array<Texture, kTextureCount>;

/// The textures of the scene, made once for the process and shared. Threads: any.
[[nodiscard]] std::shared_ptr<const TextureSet> sceneTextures();

}  // namespace oru::virtual_bus
