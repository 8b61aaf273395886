#include "koruone/output/ContactSheet.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace koruone {
namespace {

constexpr std::size_t kThumbnailWidth = 320;
constexpr std::size_t kColumns = 6;
constexpr std::size_t kMargin = 8;
constexpr std::size_t kCaption = 20;
constexpr std::size_t kDigitScale = 2;
constexpr std::size_t kDigitWidth = 5;
constexpr std::size_t kDigitHeight = 7;
constexpr unsigned char kPaper = 32;
constexpr unsigned char kInk = 220;

// Rows of the digits, five bits each, the left column highest.
constexpr std::array<std::array<unsigned char, kDigitHeight>, 10> kDigits{{
    {0b01110, 0b10001, 0b10011, 0b10101, 0b11001, 0b10001, 0b01110},
    {0b00100, 0b01100, 0b00100, 0b00100, 0b00100, 0b00100, 0b01110},
    {0b01110, 0b10001, 0b00001, 0b00110, 0b01000, 0b10000, 0b11111},
    {0b01110, 0b10001, 0b00001, 0b00110, 0b00001, 0b10001, 0b01110},
    {0b00010, 0b00110, 0b01010, 0b10010, 0b11111, 0b00010, 0b00010},
    {0b11111, 0b10000, 0b11110, 0b00001, 0b00001, 0b10001, 0b01110},
    {0b00110, 0b01000, 0b10000, 0b11110, 0b10001, 0b10001, 0b01110},
    {0b11111, 0b00001, 0b00010, 0b00100, 0b01000, 0b01000, 0b01000},
    {0b01110, 0b10001, 0b10001, 0b01110, 0b10001, 0b10001, 0b01110},
    {0b01110, 0b10001, 0b10001, 0b01111, 0b00001, 0b00010, 0b01100},
}};

/// The sheet while it is drawn; four bytes a pixel.
class Canvas {
public:
    Canvas(std::size_t width, std::size_t height)
        : sheetWidth(width), sheetHeight(height), canvas(width * height * 4, kPaper) {}

    void copy(std::size_t x, std::size_t y, const std::vector<unsigned char>& pixels, std::size_t width) {
        const std::size_t rows = pixels.size() / (width * 4);
        for (std::size_t row = 0; row < rows; ++row) {
            std::copy_n(pixels.data() + row * width * 4, width * 4, at(x, y + row));
        }
    }

    void drawNumber(std::size_t x, std::size_t y, std::string_view digits) {
        for (const char digit : digits) {
            drawDigit(x, y, kDigits[static_cast<std::size_t>(digit - '0')]);
            x += (kDigitWidth + 1) * kDigitScale;
        }
    }

    [[nodiscard]] ImageView view() const { return {canvas.data(), sheetWidth, sheetHeight, sheetWidth * 4, false}; }

private:
    unsigned char* at(std::size_t x, std::size_t y) { return canvas.data() + (y * sheetWidth + x) * 4; }

    void drawDigit(std::size_t x, std::size_t y, const std::array<unsigned char, kDigitHeight>& rows) {
        for (std::size_t row = 0; row < kDigitHeight * kDigitScale; ++row) {
            for (std::size_t column = 0; column < kDigitWidth * kDigitScale; ++column) {
                const unsigned bit = kDigitWidth - 1 - static_cast<unsigned>(column / kDigitScale);
                if (((rows[row / kDigitScale] >> bit) & 1U) != 0) {
                    std::fill_n(at(x + column, y + row), 4, kInk);
                }
            }
        }
    }

    std::size_t sheetWidth;
    std::size_t sheetHeight;
    std::vector<unsigned char> canvas;
};

/// Mean of a block of the image in one channel.
unsigned char mean(const ImageView& image, std::size_t x0, std::size_t x1, std::size_t y0, std::size_t y1,
                   std::size_t channel) {
    const std::size_t pixel = image.gray ? 1 : 4;
    uint64_t sum = 0;
    for (std::size_t y = y0; y < y1; ++y) {
        const unsigned char* row = image.pixels + y * image.step + (image.gray ? 0 : channel);
        for (std::size_t x = x0; x < x1; ++x) {
            sum += row[x * pixel];
        }
    }
    return static_cast<unsigned char>(sum / ((x1 - x0) * (y1 - y0)));
}

}  // namespace

void ContactSheet::offer(uint64_t frame, const ImageView& image) {
    if (image.width == 0 || image.height == 0 || offered++ % stride != 0) {
        return;
    }
    if (thumbnails.empty()) {
        thumbnailWidth = std::min(kThumbnailWidth, image.width);
        thumbnailHeight = std::max<std::size_t>(image.height * thumbnailWidth / image.width, 1);
    }
    if (thumbnails.size() == kMost) {
        keepEverySecond();
        if ((offered - 1) % stride != 0) {
            return;
        }
    }
    thumbnails.push_back(shrink(frame, image));
}

void ContactSheet::keepEverySecond() {
    stride *= 2;
    for (std::size_t i = 1; i < kMost / 2; ++i) {
        thumbnails[i] = std::move(thumbnails[2 * i]);
    }
    thumbnails.resize(kMost / 2);
}

ContactSheet::Thumbnail ContactSheet::shrink(uint64_t frame, const ImageView& image) const {
    Thumbnail thumbnail{frame, std::vector<unsigned char>(thumbnailWidth * thumbnailHeight * 4)};
    unsigned char* out = thumbnail.pixels.data();
    for (std::size_t y = 0; y < thumbnailHeight; ++y) {
        const std::size_t y0 = y * image.height / thumbnailHeight;
        const std::size_t y1 = std::max((y + 1) * image.height / thumbnailHeight, y0 + 1);
        for (std::size_t x = 0; x < thumbnailWidth; ++x) {
            const std::size_t x0 = x * image.width / thumbnailWidth;
            const std::size_t x1 = std::max((x + 1) * image.width / thumbnailWidth, x0 + 1);
            for (std::size_t channel = 0; channel < 4; ++channel) {
                *out++ = mean(image, x0, x1, y0, y1, channel);
            }
        }
    }
    return thumbnail;
}

bool ContactSheet::write(const std::filesystem::path& path, PngEncoder& encoder, std::string& error) const {
    if (thumbnails.empty()) {
        return true;
    }
    const std::size_t columns = std::min(kColumns, thumbnails.size());
    const std::size_t rows = (thumbnails.size() + columns - 1) / columns;
    const std::size_t cellWidth = std::max(thumbnailWidth, (kDigitWidth + 1) * kDigitScale * 20) + kMargin;
    const std::size_t cellHeight = thumbnailHeight + kCaption + kMargin;
    Canvas canvas(columns * cellWidth + kMargin, rows * cellHeight + kMargin);
    for (std::size_t i = 0; i < thumbnails.size(); ++i) {
        const std::size_t x = kMargin + i % columns * cellWidth;
        const std::size_t y = kMargin + i / columns * cellHeight;
        canvas.copy(x, y, thumbnails[i].pixels, thumbnailWidth);
        canvas.drawNumber(x, y + thumbnailHeight + 3, fmt::format("{}", thumbnails[i].frame));
    }
    return encoder.write(path, canvas.view(), error);
}

}  // namespace koruone
