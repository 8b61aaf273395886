#pragma once

#include <cstdint>
#include <vector>

#include "backends/virtual_bus/scene/scene.hpp"
#include "oru/Lens.hpp"

namespace oru::virtual_bus {

/// Draws the scene through a lens into YUYV frames. The rays of a mesh of 8 x 8 pixel cells are found once per mode;
/// a cell whose corners see one surface is drawn by interpolating texture positions, any other pixel by pixel.
class SceneRenderer {
public:
    static constexpr int kCell = 8;

    /// Width and height are multiples of kCell.
    SceneRenderer(const Lens& lens, int width, int height);

    /// Starts a frame. Allocates nothing.
    void begin(const View& view, double seconds);
    /// Draws kCell rows; `pixels` is the start of the band. Bands are drawn in order, from 0 to height / kCell.
    void drawBand(int band, unsigned char* pixels);
    [[nodiscard]] int bands() const { return imageHeight / kCell; }

private:
    struct CornerRow {
        std::vector<float> dx, dy, dz, distance, u, v;
        std::vector<int32_t> surface;
    };
    /// Where a ray meets its texture: the level to look it up in and the position in turns of 2^32.
    struct Footprint {
        const Texture::Level* level;
        uint32_t u;
        uint32_t v;
    };
    void buildRays(const Lens& lens);
    void traceRow(int row, CornerRow& corners);
    void drawUniform(int column, unsigned char* pixels) const;
    void drawMixed(int column, unsigned char* pixels) const;
    void drawMixedRow(const Vector3& start, const Vector3& step, std::span<const int32_t, 4> seen,
                      std::span<uint32_t, kCell> texels) const;
    [[nodiscard]] Footprint footprint(const Hit& hit, const Vector3& direction) const;

    int imageWidth;
    int imageHeight;
    int columns;  // corners in a row
    float pixelAngle;
    std::vector<float> rayX;
    std::vector<float> rayY;
    Scene hallScene;
    View currentView;
    CornerRow upper;
    CornerRow lower;
};

}  // namespace oru::virtual_bus
