#pragma once

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "backends/rectifier/device/pixel_arithmetic.hpp"

// One pixel of a view, wherever it looks. The tests run this code on the host and compare it with the plain definition
// (cpu/plain_view.hpp).

namespace oru::rectifier {

/// A packed YUYV image where the pixel code can read it; a word is a pair of pixels, Y0 in its lowest byte, then U,
/// Y1 and V. Borrowed.
struct PairImage {
    const std::uint32_t* pairs;
    int pairs_per_row;
    int width;
    int height;
    int chroma_siting;  // of yuyv_frame.hpp, in steps of 1 / kFractionSteps

    // What follows from the size, so that not every pixel works it out.
    float half_width, half_height;
    int last_x, last_y, last_chroma;                        // the last sample of an axis, in the same steps
    std::uint32_t inner_siting, inner_columns, inner_rows;  // of column_pixels.hpp
};

/// Which place of the image each pixel of a rectified view shows: the lens model of cpu/lens.hpp evaluated anew for
/// every pixel, without a map.
template <class Real>
struct LensRays {
    struct Place {
        Real x;
        Real y;
    };

    Real first_x, first_y;          // the ray of view pixel (0, 0)
    Real per_pixel_x, per_pixel_y;  // and its change from pixel to pixel
    Real k1, k2, k3, k4, k5, k6;

    // From here on in pixels of the image: the tangential and the thin-prism terms by the power they are factors of.
    Real scale_x, origin_x, xy_in_x, xx_in_x, r2_in_x, r4_in_x;
    Real scale_y, origin_y, xy_in_y, yy_in_y, r2_in_y, r4_in_y;

    /// Written so that a thread works out what depends on `u` alone once for all pixels of a column.
    [[nodiscard]] ORU_PIXEL_CODE Place at(int u, int v) const {
        const Real x = first_x + static_cast<Real>(u) * per_pixel_x;
        const Real y = first_y + static_cast<Real>(v) * per_pixel_y;
        const Real x2 = x * x;
        const Real r2 = x2 + y * y;
        const Real radial = pixel::quotient(1 + r2 * (k1 + r2 * (k2 + r2 * k3)), 1 + r2 * (k4 + r2 * (k5 + r2 * k6)));
        const Real besideX = r2 * (r2_in_x + r2 * r4_in_x) + ((xy_in_x * x) * y + (xx_in_x * x2 + origin_x));
        const Real besideY = r2 * (r2_in_y + r2 * r4_in_y) + (y * (yy_in_y * y + xy_in_y * x) + origin_y);
        return {(scale_x * x) * radial + besideX, (scale_y * y) * radial + besideY};
    }
};

/// A view to be drawn from an image of the view's size.
struct ViewJob {
    PairImage image;
    unsigned char* view;  // without padding: BGRA, aligned to 4 bytes, or gray
    int width;
    int height;
    bool flipped;
    LensRays<float> rays;
    LensRays<double> exact_rays;
};

/// Where a view pixel looks, in pixels of the image; whole numbers are pixel centres.
struct Sight {
    float x;
    float y;
    bool inside;
};

inline constexpr int kFractionBits = 15;
inline constexpr int kFractionSteps = 1 << kFractionBits;

namespace pixel {

/// Single precision cannot tell on which side of the border a place lies that is so close to it, in pixels.
inline constexpr float kDoubtfulMargin = 1.0F / 16;

inline constexpr std::uint32_t kPartBits = std::bit_cast<std::uint32_t>(256.0F);  // 2^8 holds a fraction of 15 bits

/// A position in steps of 1 / kFractionSteps.
ORU_PIXEL_CODE int stepsOf(float position) {
#ifdef __CUDA_ARCH__
    return __float2int_rn(position * kFractionSteps);
#else
    return static_cast<int>(std::nearbyint(position * kFractionSteps));
#endif
}

/// The four pairs of pixels around a place, as two rows, and how far it lies from the upper towards the lower.
struct Window {
    std::uint32_t upper_left, upper_right, lower_left, lower_right;
    float part;
};

ORU_PIXEL_CODE Window windowAt(const PairImage& image, int firstPair, float y) {
    const int steps = clampedTo(stepsOf(y), image.last_y);
    const int row = steps >> kFractionBits;
    const int nextRow = smaller(row + 1, image.last_y >> kFractionBits);
    const int nextPair = smaller(firstPair + 1, image.last_chroma >> kFractionBits);
    const int upper = row * image.pairs_per_row;  // an image has fewer pairs than 2^31
    const int lower = nextRow * image.pairs_per_row;
    const auto part = static_cast<std::uint32_t>(steps & (kFractionSteps - 1));
    return {loadPair(image.pairs + (upper + firstPair)), loadPair(image.pairs + (upper + nextPair)),
            loadPair(image.pairs + (lower + firstPair)), loadPair(image.pairs + (lower + nextPair)),
            std::bit_cast<float>(kPartBits | part) - 256.0F};
}

/// Luma in a window, as of meanOfLower; `sample` is which of its first three pixels lies left of the place, and
/// `position` counts in steps of 2^-kBits.
template <int kBits>
ORU_PIXEL_CODE float lumaIn(const Window& window, std::uint32_t sample, std::uint32_t position) {
    const std::uint32_t digits = 0x20 + sample * 0x22;  // its byte is 0, 2 or 4, its neighbour's two more
    const std::uint32_t weights = weightsAt<kBits>(position);
    return between(meanOfLower(weights, pickBytes(window.upper_left, window.upper_right, digits)),
                   meanOfLower(weights, pickBytes(window.lower_left, window.lower_right, digits)), window.part);
}

/// Y, U and V are interpolated between four samples each, then converted and clamped once. `luma` is as of lumaIn,
/// `position` that of chroma between the window's pairs, in steps of 2^-kChromaBits.
template <int kLumaBits, int kChromaBits>
ORU_PIXEL_CODE std::uint32_t bgraIn(const Window& window, float luma, std::uint32_t position) {
    const std::uint32_t weights = weightsAt<kChromaBits>(position);
    const std::uint32_t upper = pickBytes(window.upper_left, window.upper_right, 0x7351);  // U, U, V, V
    const std::uint32_t lower = pickBytes(window.lower_left, window.lower_right, 0x7351);
    return bgraOf<kLumaBits, kChromaBits>(
        luma, between(meanOfLower(weights, upper), meanOfLower(weights, lower), window.part),
        between(meanOfUpper(weights, upper), meanOfUpper(weights, lower), window.part));
}

/// The gray of a luma as of lumaIn.
template <int kBits>
ORU_PIXEL_CODE unsigned char grayOf(float luma) {
    return static_cast<unsigned char>((std::bit_cast<std::uint32_t>(luma) + (1U << (kBits - 1))) >> kBits & 0xFF);
}

/// Luma at a place in the first pair of a window or right of it; `steps` counts from the image's left border.
ORU_PIXEL_CODE float lumaAt(const Window& window, int firstPair, int steps) {
    const auto sample = static_cast<std::uint32_t>((steps >> kFractionBits) - 2 * firstPair);
    return lumaIn<kFractionBits>(window, sample, static_cast<std::uint32_t>(steps));
}

}  // namespace pixel

/// Places up to half a pixel outside the image belong to it; what is not a number lies outside.
ORU_PIXEL_CODE Sight rectifiedSight(const ViewJob& job, int u, int v) {
    const LensRays<float>::Place place = job.rays.at(u, v);
    const float halfWidth = job.image.half_width;
    const float halfHeight = job.image.half_height;
    const float beyond = std::fmax(std::fabs(place.x - (halfWidth - 0.5F)) - halfWidth,
                                   std::fabs(place.y - (halfHeight - 0.5F)) - halfHeight);
    if (std::fabs(beyond) > pixel::kDoubtfulMargin) {
        return {place.x, place.y, beyond < 0};
    }
    const LensRays<double>::Place exact = job.exact_rays.at(u, v);
    const auto x = static_cast<float>(exact.x);
    const auto y = static_cast<float>(exact.y);
    return {x, y, x >= -0.5F && x <= 2 * halfWidth - 0.5F && y >= -0.5F && y <= 2 * halfHeight - 0.5F};
}

ORU_PIXEL_CODE std::uint32_t bgraAt(const PairImage& image, const Sight& sight) {
    if (!sight.inside) {
        return 0xFF000000U;
    }
    const int steps = pixel::stepsOf(sight.x);
    const int chromaSteps = pixel::clampedTo((steps - image.chroma_siting) >> 1, image.last_chroma);
    const int firstPair = chromaSteps >> kFractionBits;
    const pixel::Window window = pixel::windowAt(image, firstPair, sight.y);
    const float luma = pixel::lumaAt(window, firstPair, pixel::clampedTo(steps, image.last_x));
    return pixel::bgraIn<kFractionBits, kFractionBits>(window, luma, static_cast<std::uint32_t>(chromaSteps));
}

ORU_PIXEL_CODE unsigned char grayAt(const PairImage& image, const Sight& sight) {
    if (!sight.inside) {
        return 0;
    }
    const int steps = pixel::clampedTo(pixel::stepsOf(sight.x), image.last_x);
    const int firstPair = steps >> (kFractionBits + 1);
    return pixel::grayOf<kFractionBits>(pixel::lumaAt(pixel::windowAt(image, firstPair, sight.y), firstPair, steps));
}

}  // namespace oru::rectifier
