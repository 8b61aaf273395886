#pragma once

#include <type_traits>

#include "backends/rectifier/device/view_pixel.hpp"

// The pixels that one thread draws: some below each other, so that what their column has in common is worked out once.

namespace oru::rectifier {

inline constexpr int kColumnRows = 4;

namespace pixel {

// Places well inside the image are held by a float between 2^12 and 2^13: 11 bits of fraction.
inline constexpr int kInnerBits = 11;
inline constexpr float kInnerBase = 1 << (23 - kInnerBits);
inline constexpr int kInnerPairBits = kInnerBits + 1;

/// A place whose four samples and their chroma all lie in the image, so that nothing has to be clamped.
struct InnerPlace {
    std::uint32_t column;  // in steps of 2^-kInnerBits
    std::uint32_t chroma;  // the same, less the siting of chroma: in pairs, steps of 2^-kInnerPairBits
    std::uint32_t row;     // the upper one
    float part;            // of the way to the lower one
};

/// Clears `inside` unless the place is of that kind; one that is not a number is not.
ORU_PIXEL_CODE InnerPlace innerPlace(const PairImage& image, LensRays<float>::Place place, bool& inside) {
    const std::uint32_t column =
        std::bit_cast<std::uint32_t>(place.x + kInnerBase) - std::bit_cast<std::uint32_t>(kInnerBase);
    const std::uint32_t chroma = column - image.inner_siting;
    const float row = place.y + (kWhole - 0.5F);
    const std::uint32_t rowNumber = std::bit_cast<std::uint32_t>(row) - kWholeBits;
    inside = inside && chroma < image.inner_columns && rowNumber < image.inner_rows;
    return {column, chroma, rowNumber, place.y - (row - kWhole)};
}

ORU_PIXEL_CODE Window innerWindow(const PairImage& image, const InnerPlace& place) {
    const auto pairsPerRow = static_cast<std::uint32_t>(image.pairs_per_row);
    const std::uint32_t index = place.row * pairsPerRow + (place.chroma >> kInnerPairBits);
    const std::uint32_t* const upper = image.pairs + index;
    const std::uint32_t* const lower = image.pairs + (index + pairsPerRow);
    return {loadPair(upper), loadPair(upper + 1), loadPair(lower), loadPair(lower + 1), place.part};
}

ORU_PIXEL_CODE float innerLuma(const Window& window, const InnerPlace& place) {
    const std::uint32_t sample = (place.column >> kInnerBits) - 2 * (place.chroma >> kInnerPairBits);
    return lumaIn<kInnerBits>(window, sample, place.column);
}

ORU_PIXEL_CODE void putInner(const PairImage& image, const InnerPlace& place, std::uint32_t& bgra) {
    const Window window = innerWindow(image, place);
    bgra = bgraIn<kInnerBits, kInnerPairBits>(window, innerLuma(window, place), place.chroma);
}
ORU_PIXEL_CODE void putInner(const PairImage& image, const InnerPlace& place, unsigned char& gray) {
    gray = grayOf<kInnerBits>(innerLuma(innerWindow(image, place), place));
}

ORU_PIXEL_CODE void putAt(const PairImage& image, const Sight& sight, std::uint32_t& bgra) {
    bgra = bgraAt(image, sight);
}
ORU_PIXEL_CODE void putAt(const PairImage& image, const Sight& sight, unsigned char& gray) {
    gray = grayAt(image, sight);
}

template <class Pixel>
ORU_PIXEL_CODE void drawRectifiedColumn(const ViewJob& job, int u, int v, int rows, Pixel* out) {
    if (rows == kColumnRows) {
        InnerPlace places[kColumnRows];
        bool inside = true;
        for (int i = 0; i < kColumnRows; ++i) {
            places[i] = innerPlace(job.image, job.rays.at(u, v + i), inside);
        }
        if (inside) {
            for (int i = 0; i < kColumnRows; ++i, out += job.width) {
                putInner(job.image, places[i], *out);
            }
            return;
        }
    }
    for (int i = 0; i < rows; ++i, out += job.width) {
        putAt(job.image, rectifiedSight(job, u, v + i), *out);
    }
}

/// A column of the image as it is: its luma byte, and its chroma between two pairs.
struct PlainColumn {
    int x;
    int first_pair, next_pair;
    std::uint32_t chroma_weights;
};
ORU_PIXEL_CODE PlainColumn plainColumn(const PairImage& image, int x) {
    const int steps = clampedTo((x * kFractionSteps - image.chroma_siting) >> 1, image.last_chroma);
    const int pair = steps >> kFractionBits;
    return {x, pair, smaller(pair + 1, image.last_chroma >> kFractionBits),
            weightsAt<kFractionBits>(static_cast<std::uint32_t>(steps))};
}

ORU_PIXEL_CODE unsigned char plainLuma(const PlainColumn& column, const std::uint32_t* row) {
    return reinterpret_cast<const unsigned char*>(row)[2 * column.x];
}
ORU_PIXEL_CODE void putPlain(const PlainColumn& column, const std::uint32_t* row, std::uint32_t& bgra) {
    const std::uint32_t chroma = pickBytes(loadPair(row + column.first_pair), loadPair(row + column.next_pair), 0x7351);
    const std::uint32_t luma = std::uint32_t{plainLuma(column, row)} << kFractionBits;
    bgra = bgraOf<kFractionBits, kFractionBits>(std::bit_cast<float>(kWholeBits | luma),
                                                meanOfLower(column.chroma_weights, chroma),
                                                meanOfUpper(column.chroma_weights, chroma));
}
ORU_PIXEL_CODE void putPlain(const PlainColumn& column, const std::uint32_t* row, unsigned char& gray) {
    gray = plainLuma(column, row);
}

/// Black where the view is larger than the image.
template <class Pixel>
ORU_PIXEL_CODE void drawPlainColumn(const ViewJob& job, int u, int v, int rows, Pixel* out) {
    const PairImage& image = job.image;
    const int x = job.flipped ? job.width - 1 - u : u;
    const PlainColumn column = plainColumn(image, x);
    for (int i = 0; i < rows; ++i, out += job.width) {
        const int y = job.flipped ? job.height - 1 - (v + i) : v + i;
        if (x < image.width && y < image.height) {
            putPlain(column, image.pairs + static_cast<std::ptrdiff_t>(y) * image.pairs_per_row, *out);
        } else {
            putAt(image, Sight{0, 0, false}, *out);
        }
    }
}

}  // namespace pixel

/// Draws column `u` of a view from row `v` on, kColumnRows pixels or as many as there are.
template <bool kRectified, bool kGray>
ORU_PIXEL_CODE void drawColumn(const ViewJob& job, int u, int v) {
    using Pixel = std::conditional_t<kGray, unsigned char, std::uint32_t>;
    auto* const out = reinterpret_cast<Pixel*>(job.view) + (static_cast<std::ptrdiff_t>(v) * job.width + u);
    const int rows = pixel::smaller(kColumnRows, job.height - v);
    if constexpr (kRectified) {
        pixel::drawRectifiedColumn(job, u, v, rows, out);
    } else {
        pixel::drawPlainColumn(job, u, v, rows, out);
    }
}

}  // namespace oru::rectifier
