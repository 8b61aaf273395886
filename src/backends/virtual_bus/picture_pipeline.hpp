#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "backends/virtual_bus/picture_source.hpp"
#include "backends/virtual_bus/sensor_controls.hpp"

namespace oru::virtual_bus {

/// Applies the controls to a picture as it is drawn, band by band while the rows are in the cache, and measures its
/// luma. Luma above black is scaled by the light, then goes through contrast, brightness, gamma and the HDR curve;
/// chroma is scaled alike, turned by the hue and shifted by the white balance; noise and sharpness change luma alone.
class PicturePipeline final : public RowSink {
public:
    PicturePipeline(int width, int height);

    /// Starts a picture.
    void begin(const PictureSettings& settings);
    void rows(unsigned char* pixels, int first, int count) override;
    /// Sharpness and lamp, which need the whole picture.
    void finish(unsigned char* pixels);

    /// Mean luma of the region over the last picture.
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

    enum class Path : int32_t { untouched, scale, tables, colour };

    int width_;
    int height_;
    PictureSettings settings_;
    bool prepared_ = false;
    Path path_ = Path::untouched;
    std::array<unsigned char, 256> luma_{};
    std::array<unsigned char, 256> chroma_{};
    std::array<std::array<float, 3>, 3> matrix_{};
    std::vector<int8_t> noise_;
    uint32_t noise_seed_ = 1;
    std::vector<unsigned char> above_;
    std::vector<unsigned char> current_;
    uint64_t luma_sum_ = 0;
    uint64_t luma_count_ = 0;
};

}  // namespace oru::virtual_bus
