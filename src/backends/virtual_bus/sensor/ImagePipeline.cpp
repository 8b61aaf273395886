#include "backends/virtual_bus/sensor/ImagePipeline.hpp"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <random>

namespace oru::virtual_bus {
namespace {

constexpr double kBlack = 16.0;
constexpr double kWhite = 235.0;
constexpr double kMiddle = 128.0;
constexpr double kChromaMin = 16.0;
constexpr double kChromaMax = 240.0;
constexpr std::size_t kNoiseTable = 8192;
constexpr double kVisibleNoise = 0.25;
constexpr double kMaxScale = 31.0;    // what 16-bit arithmetic holds
constexpr uint64_t kMeasureStep = 8;  // pixels and rows between two that are measured
constexpr int kNeutralSharpness = 3;

unsigned char toByte(double value, double low, double high) {
    return static_cast<unsigned char>(std::lround(std::clamp(value, low, high)));
}

/// RGB to YUV about black and middle (ITU-R BT.601, video range), components in 0..1.
Eigen::Matrix3d yuvFromRgb() {
    Eigen::Matrix3d m;
    m << 65.481, 128.553, 24.966, -37.797, -74.203, 112.0, 112.0, -93.786, -18.214;
    return m;
}

}  // namespace

ImagePipeline::ImagePipeline(int width, int height)
    : imageWidth(width),
      imageHeight(height),
      noise(kNoiseTable),
      rowAbove(static_cast<std::size_t>(width) * 2),
      currentRow(static_cast<std::size_t>(width) * 2) {}

void ImagePipeline::begin(const ImageSettings& settings) {
    lumaSum = 0;
    lumaCount = 0;
    if (prepared && settings == currentSettings) {
        return;
    }
    currentSettings = settings;
    prepared = true;
    const bool linear = settings.brightness == 4 && settings.contrast == 4 && settings.gamma == 5 && !settings.hdr;
    const bool plainColour = settings.hue == 0 && settings.white_balance == 4600;
    if (!plainColour) {
        path = Path::COLOUR;
    } else if (!linear || settings.saturation != 4) {
        path = Path::TABLES;
    } else {
        path = settings.light == 1.0 ? Path::UNTOUCHED : Path::SCALE;
        path = settings.light > kMaxScale ? Path::TABLES : path;
    }
    prepareTone();
    prepareColour();
    prepareNoise();
}

void ImagePipeline::prepareTone() {
    const double contrast = 1.0 + 0.125 * (currentSettings.contrast - 4);
    const double brightness = 8.0 * (currentSettings.brightness - 4);
    const double exponent = std::exp2(0.125 * (5 - currentSettings.gamma)) * (currentSettings.hdr ? 0.6 : 1.0);
    // The colour path scales before it looks up.
    const double light = path == Path::COLOUR ? 1.0 : currentSettings.light;
    const double middle = (kWhite - kBlack) / 2.0;
    for (std::size_t i = 0; i < lumaTable.size(); ++i) {
        const double scaled = std::clamp((static_cast<double>(i) - kBlack) * light, 0.0, kWhite - kBlack);
        const double toned = std::pow(scaled / (kWhite - kBlack), exponent) * (kWhite - kBlack);
        lumaTable[i] = toByte(kBlack + middle + (toned - middle) * contrast + brightness, kBlack, kWhite);
        const double chroma =
            (static_cast<double>(i) - kMiddle) * currentSettings.light * currentSettings.saturation / 4.0;
        chromaTable[i] = toByte(kMiddle + chroma, kChromaMin, kChromaMax);
    }
}

void ImagePipeline::prepareColour() {
    // A camera set for a warmer light than there is turns the image blue, and the other way round.
    const double warm = std::pow(currentSettings.white_balance / 4600.0, 0.8);
    const Eigen::Vector3d balance(warm, 1.0, 1.0 / warm);
    const double angle = currentSettings.hue * std::numbers::pi / 6.0;
    const double saturation = currentSettings.saturation / 4.0;
    Eigen::Matrix3d turn = Eigen::Matrix3d::Identity();
    turn(1, 1) = saturation * std::cos(angle);
    turn(1, 2) = -saturation * std::sin(angle);
    turn(2, 1) = saturation * std::sin(angle);
    turn(2, 2) = saturation * std::cos(angle);
    const Eigen::Matrix3d matrix =
        currentSettings.light * turn * yuvFromRgb() * balance.asDiagonal() * yuvFromRgb().inverse();
    for (std::size_t row = 0; row < 3; ++row) {
        for (std::size_t column = 0; column < 3; ++column) {
            colourMatrix[row][column] = static_cast<float>(matrix(static_cast<int>(row), static_cast<int>(column)));
        }
    }
}

void ImagePipeline::prepareNoise() {
    if (currentSettings.noise < kVisibleNoise) {
        return;
    }
    std::mt19937 random(1);
    std::normal_distribution<double> normal(0.0, currentSettings.noise);
    for (int8_t& value : noise) {
        value = static_cast<int8_t>(std::lround(std::clamp(normal(random), -100.0, 100.0)));
    }
}

void ImagePipeline::rows(unsigned char* pixels, int first, int count) {
    for (int row = first; row < first + count; ++row) {
        switch (path) {
            case Path::UNTOUCHED:
                break;
            case Path::SCALE:
                scaleRow(pixels);
                break;
            case Path::TABLES:
                tableRow(pixels);
                break;
            case Path::COLOUR:
                colourRow(pixels);
                break;
        }
        if (currentSettings.noise >= kVisibleNoise) {
            addNoise(pixels);
        }
        const auto y = static_cast<uint64_t>(row);
        const Rect& region = currentSettings.region;
        if (y >= region.y && y < region.y + region.height && (y - region.y) % kMeasureStep == 0) {
            measureRow(pixels);
        }
        pixels += static_cast<std::size_t>(imageWidth) * 2;
    }
}

void ImagePipeline::scaleRow(unsigned char* row) const {
    // 64 bytes at a time in 16-bit arithmetic with constants in arrays, so that the compiler makes vectors of it. The
    // difference is raised by 7 bits and the gain by 10, and the upper half of their product, which is twice the
    // result, is rounded.
    constexpr std::size_t kBlock = 64;
    const auto gain = static_cast<int16_t>(std::lround(currentSettings.light * 1024.0));
    std::array<int16_t, kBlock> offset{};
    std::array<int16_t, kBlock> high{};
    for (std::size_t i = 0; i < kBlock; ++i) {
        offset[i] = i % 2 == 0 ? 16 : 128;
        high[i] = i % 2 == 0 ? 235 : 240;
    }
    const auto bytes = static_cast<std::size_t>(imageWidth) * 2;
    for (std::size_t start = 0; start < bytes; start += kBlock) {
        unsigned char* block = row + start;
        for (std::size_t i = 0; i < kBlock; ++i) {
            const auto difference = static_cast<int16_t>((block[i] - offset[i]) * 128);
            const auto product = static_cast<int16_t>((difference * gain) >> 16);
            const auto value = static_cast<int16_t>(((product + 1) >> 1) + offset[i]);
            const int16_t raised = value < 16 ? int16_t{16} : value;
            block[i] = static_cast<unsigned char>(raised > high[i] ? high[i] : raised);
        }
    }
}

void ImagePipeline::tableRow(unsigned char* row) const {
    const auto bytes = static_cast<std::size_t>(imageWidth) * 2;
    for (std::size_t i = 0; i < bytes; i += 2) {
        row[i] = lumaTable[row[i]];
        row[i + 1] = chromaTable[row[i + 1]];
    }
}

void ImagePipeline::colourRow(unsigned char* row) const {
    const auto bytes = static_cast<std::size_t>(imageWidth) * 2;
    const auto& m = colourMatrix;
    const auto limit = [](float value, float low, float high) {
        return static_cast<unsigned char>(std::min(std::max(value, low), high) + 0.5F);
    };
    for (std::size_t i = 0; i < bytes; i += 4) {
        const float y0 = static_cast<float>(row[i]) - 16.0F;
        const float y1 = static_cast<float>(row[i + 2]) - 16.0F;
        const float u = static_cast<float>(row[i + 1]) - 128.0F;
        const float v = static_cast<float>(row[i + 3]) - 128.0F;
        const float fromChroma = m[0][1] * u + m[0][2] * v + 16.0F;
        const float y = 0.5F * (y0 + y1);
        row[i] = lumaTable[limit(m[0][0] * y0 + fromChroma, 0.0F, 255.0F)];
        row[i + 2] = lumaTable[limit(m[0][0] * y1 + fromChroma, 0.0F, 255.0F)];
        row[i + 1] = limit(m[1][0] * y + m[1][1] * u + m[1][2] * v + 128.0F, 16.0F, 240.0F);
        row[i + 3] = limit(m[2][0] * y + m[2][1] * u + m[2][2] * v + 128.0F, 16.0F, 240.0F);
    }
}

void ImagePipeline::addNoise(unsigned char* row) {
    noiseSeed = noiseSeed * 1664525U + 1013904223U;
    const std::size_t start = noiseSeed >> 16U;
    for (std::size_t x = 0; x < static_cast<std::size_t>(imageWidth); ++x) {
        const int value = row[2 * x] + noise[(start + x) % kNoiseTable];
        row[2 * x] = static_cast<unsigned char>(std::clamp(value, 16, 235));
    }
}

void ImagePipeline::measureRow(const unsigned char* row) {
    const Rect& region = currentSettings.region;
    for (uint64_t x = region.x; x < region.x + region.width; x += kMeasureStep) {
        lumaSum += row[2 * x];
        ++lumaCount;
    }
}

double ImagePipeline::meanLuma() const {
    return lumaCount == 0 ? 0.0 : static_cast<double>(lumaSum) / static_cast<double>(lumaCount);
}

void ImagePipeline::finish(unsigned char* pixels) {
    if (currentSettings.sharpness != kNeutralSharpness) {
        sharpen(pixels);
    }
    if (currentSettings.lamp) {
        drawLamp(pixels);
    }
}

void ImagePipeline::sharpen(unsigned char* pixels) {
    // Luma plus its difference from the mean of the four collaborators; a negative amount softens.
    const int excess = currentSettings.sharpness - kNeutralSharpness;
    const int amount = excess < 0 ? excess * 20 : excess * 32;  // 64 is one
    const std::size_t bytes = static_cast<std::size_t>(imageWidth) * 2;
    std::memcpy(rowAbove.data(), pixels, bytes);
    for (int row = 1; row + 1 < imageHeight; ++row) {
        unsigned char* line = pixels + static_cast<std::size_t>(row) * bytes;
        const unsigned char* below = line + bytes;
        std::memcpy(currentRow.data(), line, bytes);
        for (std::size_t i = 2; i + 2 < bytes; i += 2) {
            const int centre = currentRow[i];
            const int mean4 = rowAbove[i] + below[i] + currentRow[i - 2] + currentRow[i + 2];
            const int value = centre + (((4 * centre - mean4) * amount) >> 8);
            line[i] = static_cast<unsigned char>(std::clamp(value, 16, 235));
        }
        std::swap(rowAbove, currentRow);
    }
}

void ImagePipeline::drawLamp(unsigned char* pixels) const {
    const std::size_t side = static_cast<std::size_t>(imageWidth) / 40 * 2;  // even, so that pairs stay whole
    const std::size_t bytes = static_cast<std::size_t>(imageWidth) * 2;
    constexpr std::array<unsigned char, 4> kGreenPair{145, 54, 145, 34};
    for (std::size_t row = static_cast<std::size_t>(imageHeight) - side; row < static_cast<std::size_t>(imageHeight);
         ++row) {
        unsigned char* line = pixels + row * bytes;
        for (std::size_t i = 0; i < side * 2; i += 4) {
            std::memcpy(line + i, kGreenPair.data(), kGreenPair.size());
        }
    }
}

}  // namespace oru::virtual_bus
