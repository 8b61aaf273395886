#include "koruone/output/packed_view.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace koruone {
namespace {

constexpr unsigned char kNeutral = 128;

// ITU-R BT.601: from full-range colours to 16..235 and 16..240, in 1/65536.
constexpr int32_t kHalf = 1 << 15;
constexpr int32_t kLuma[] = {6416, 33039, 16829};
constexpr int32_t kBlueness[] = {28784, -19071, -9713};
constexpr int32_t kRedness[] = {-4681, -24103, 28784};

unsigned char weighted(const unsigned char* bgr, const int32_t (&factors)[3], int32_t offset) {
    const int32_t sum = factors[0] * bgr[0] + factors[1] * bgr[1] + factors[2] * bgr[2];
    return static_cast<unsigned char>(std::clamp(((sum + kHalf) >> 16) + offset, 0, 255));
}

}  // namespace

void packView(const oru::Mat& view, oru::Mat& packed) {
    const bool gray = view.getDataType() == oru::U8_C1;
    for (std::size_t row = 0; row < view.getHeight(); ++row) {
        const auto* from = view.getPtr<unsigned char>(oru::CPU) + row * view.getStepBytes(oru::CPU);
        auto* to = packed.getPtr<unsigned char>(oru::CPU) + row * packed.getStepBytes(oru::CPU);
        for (std::size_t column = 0; column < view.getWidth(); ++column, to += 2) {
            if (gray) {
                // A gray view is the luma itself.
                to[0] = from[column];
                to[1] = kNeutral;
                continue;
            }
            const unsigned char* left = from + 4 * (column & ~std::size_t{1});
            to[0] = weighted(from + 4 * column, kLuma, 16);
            to[1] = column % 2 == 0 ? weighted(left, kBlueness, 128) : weighted(left, kRedness, 128);
        }
    }
}

}  // namespace koruone
