#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "backends/virtual_bus/scene/image_source.hpp"
#include "backends/virtual_bus/sensor/sensor_controls.hpp"

namespace oru::virtual_bus {

/// Applies the controls to an image as it is drawn, band by band while the rows are in the cache, and measures its
/// luma. Luma above black is scaled by the light, then goes through contrast, brightness, gamma and the HDR curve;
/// chroma is scaled alike, turned by the hue and shifted by the white balance; noise and sharpness change luma alone.
class ImagePipeline final : public RowSink {
public:
    ImagePipeline(int width, int height);

    /// Starts an image.
    void begin(const ImageSettings& settings);
    void rows(unsigned char* pixels, int first, int count) override;
    /// Sharpness and lamp, which need the whole image.
    void finish(unsigned char* pixels);

    /// Mean luma of the region over the last image.
    [[nodiscard]] double meanLuma() const;

private:
    void prepareTone();
    void prepareColour();
    void prepareNoise();
    void scaleRow(unsigned char* row) const;
    void tableRow(unsigned char* row) const;
    void colourRow(unsigned char* row) const;
    void addNoise(unsigned char* row);
    void measureRow(const unsigned char* row);
    void sharpen(unsigned char* pixels);
    void drawLamp(unsigned char* pixels) const;

    enum class Path : int32_t { UNTOUCHED, SCALE, TABLES, COLOUR };

    int imageWidth;
    int imageHeight;
    ImageSettings currentSettings;
    bool prepared = false;
    Path path = Path::UNTOUCHED;
    std::array<unsigned char, 256> lumaTable{};
    std::array<unsigned char, 256> chromaTable{};
    std::array<std::array<float, 3>, 3> colourMatrix{};
    std::vector<int8_t> noise;
    uint32_t noiseSeed = 1;
    std::vector<unsigned char> rowAbove;
    std::vector<unsigned char> currentRow;
    uint64_t lumaSum = 0;
    uint64_t lumaCount = 0;
};

}  // namespace oru::virtual_bus
