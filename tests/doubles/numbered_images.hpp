#pragma once

#include <cstdint>
#include <cstdlib>
#include <vector>

namespace oru::doubles {

// YUYV images that carry a number of 24 bits: light and dark cells in two rows along the upper edge, which survive
// lossy coding. At least 48 pixels wide and 18 high.

inline constexpr uint32_t kNumberColumns = 12;
inline constexpr uint32_t kNumberRows = 2;
inline constexpr uint32_t kNumberCellHeight = 8;

inline void drawNumber(std::vector<unsigned char>& image, uint32_t width, uint64_t number) {
    const uint32_t cellWidth = width / kNumberColumns;
    for (uint32_t y = 0; y < kNumberRows * kNumberCellHeight; ++y) {
        for (uint32_t x = 0; x < kNumberColumns * cellWidth; ++x) {
            const uint32_t bit = y / kNumberCellHeight * kNumberColumns + x / cellWidth;
            image[(std::size_t{y} * width + x) * 2] = (number >> bit & 1U) != 0 ? 235 : 16;
        }
    }
}

[[nodiscard]] inline uint64_t numberIn(const std::vector<unsigned char>& image, uint32_t width) {
    const uint32_t cellWidth = width / kNumberColumns;
    uint64_t number = 0;
    for (uint32_t bit = 0; bit < kNumberColumns * kNumberRows; ++bit) {
        const std::size_t x = bit % kNumberColumns * cellWidth + cellWidth / 2;
        const std::size_t y = bit / kNumberColumns * kNumberCellHeight + kNumberCellHeight / 2;
        number |= uint64_t{image[(y * width + x) * 2] > 125} << bit;
    }
    return number;
}

/// Moves with the number.
[[nodiscard]] inline unsigned char textureAt(uint32_t x, uint32_t y, uint64_t number) {
    return static_cast<unsigned char>(64 + ((x / 4 + number * 2) % 32) * 2 + ((y / 4) % 16) * 4);
}

[[nodiscard]] inline std::vector<unsigned char> numberedImage(uint32_t width, uint32_t height, uint64_t number) {
    std::vector<unsigned char> image(std::size_t{width} * height * 2, 128);
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            image[(std::size_t{y} * width + x) * 2] = textureAt(x, y, number);
        }
    }
    drawNumber(image, width, number);
    return image;
}

/// The number in an image, and how far the rest of the image lies from the original in the mean.
struct SeenImage {
    uint64_t number = 0;
    double mean_error = 0.0;
};

[[nodiscard]] inline SeenImage readImage(const std::vector<unsigned char>& image, uint32_t width, uint32_t height) {
    SeenImage seen{numberIn(image, width)};
    double sum = 0.0;
    std::size_t count = 0;
    for (uint32_t y = kNumberRows * kNumberCellHeight; y < height; y += 3) {
        for (uint32_t x = 0; x < width; x += 3) {
            sum += std::abs(int{image[(std::size_t{y} * width + x) * 2]} - int{textureAt(x, y, seen.number)});
            ++count;
        }
    }
    seen.mean_error = sum / static_cast<double>(count);
    return seen;
}

}  // namespace oru::doubles
