#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "backends/rectifier/cpu/bt601.hpp"

// One pixel of a view, in code that compiles for a CUDA device and for the host alike: a device runs it in one thread a
// pixel, the tests run it here and compare it with the plain definition (cpu/plain_view.hpp).

#ifdef __CUDACC__
#define ORU_PIXEL_CODE __host__ __device__ inline
#else
#define ORU_PIXEL_CODE inline
#endif

namespace oru::rectifier {

/// A packed YUYV picture where the pixel code can read it; a word is a pair of pixels, Y0 in its lowest byte, then U,
/// Y1 and V. Borrowed.
struct PairPicture {
    const std::uint32_t* pairs;
    int pairsPerRow;
    int width;
    int height;
    int chromaSiting;  // of yuyv_frame.hpp, in steps of 1 / kFractionSteps

    // What follows from the size, so that not every pixel works it out.
    float halfWidth, halfHeight;
    int lastX, lastY, lastChroma;  // the last sample of an axis, in the same steps
};

/// Which place of the picture each pixel of a rectified view shows: the lens model of cpu/lens.hpp evaluated anew for
/// every pixel, without a map.
template <class Real>
struct LensRays {
    struct Place {
        Real x;
        Real y;
    };

    Real firstX, firstY;        // the ray of view pixel (0, 0)
    Real perPixelX, perPixelY;  // and its change from pixel to pixel
    Real k1, k2, p1, p2, k3, k4, k5, k6, s1, s2, s3, s4;
    Real scaleX, scaleY, originX, originY;  // from distorted rays to pixels of the picture

    [[nodiscard]] ORU_PIXEL_CODE Place at(int u, int v) const {
        const Real x = firstX + static_cast<Real>(u) * perPixelX;
        const Real y = firstY + static_cast<Real>(v) * perPixelY;
        const Real xy = 2 * x * y;
        const Real r2 = x * x + y * y;
        const Real radial = (1 + r2 * (k1 + r2 * (k2 + r2 * k3))) / (1 + r2 * (k4 + r2 * (k5 + r2 * k6)));
        const Real distortedX = x * radial + p1 * xy + p2 * (r2 + 2 * x * x) + r2 * (s1 + r2 * s2);
        const Real distortedY = y * radial + p1 * (r2 + 2 * y * y) + p2 * xy + r2 * (s3 + r2 * s4);
        return {scaleX * distortedX + originX, scaleY * distortedY + originY};
    }
};

/// A view to be drawn from a picture of the view's size.
struct ViewJob {
    PairPicture picture;
    unsigned char* view;  // without padding: BGRA, aligned to 4 bytes, or gray
    int width;
    int height;
    bool flipped;
    LensRays<float> rays;
    LensRays<double> exactRays;
};

/// Where a view pixel looks, in pixels of the picture; whole numbers are pixel centres.
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

// A float between 2^23 and 2^24 holds an integer in its low 23 bits; one at 2^8 holds a fraction of 15 bits.
inline constexpr std::uint32_t kWholeBits = std::bit_cast<std::uint32_t>(8388608.0F);
inline constexpr std::uint32_t kPartBits = std::bit_cast<std::uint32_t>(256.0F);
inline constexpr float kWhole = std::bit_cast<float>(kWholeBits);

/// The bytes of the pair (high, low) that the hexadecimal digits of `digits` name, the lowest digit first.
ORU_PIXEL_CODE std::uint32_t pickBytes(std::uint32_t low, std::uint32_t high, std::uint32_t digits) {
#ifdef __CUDA_ARCH__
    return __byte_perm(low, high, digits);
#else
    const std::uint64_t both = std::uint64_t{high} << 32 | low;
    std::uint32_t picked = 0;
    for (unsigned i = 0; i < 4; ++i) {
        picked |= static_cast<std::uint32_t>(both >> (digits >> 4 * i & 7) * 8 & 0xFF) << 8 * i;
    }
    return picked;
#endif
}

/// Mean of two bytes, the lower (or the upper) two of `bytes`, by the two 16-bit weights, as a float of kWhole plus
/// 2^15 times the mean.
ORU_PIXEL_CODE float meanOfLower(std::uint32_t weights, std::uint32_t bytes) {
#ifdef __CUDA_ARCH__
    return __uint_as_float(__dp2a_lo(weights, bytes, kWholeBits));
#else
    return std::bit_cast<float>(kWholeBits + (weights & 0xFFFF) * (bytes & 0xFF) +
                                (weights >> 16) * (bytes >> 8 & 0xFF));
#endif
}
ORU_PIXEL_CODE float meanOfUpper(std::uint32_t weights, std::uint32_t bytes) {
#ifdef __CUDA_ARCH__
    return __uint_as_float(__dp2a_hi(weights, bytes, kWholeBits));
#else
    return meanOfLower(weights, bytes >> 16);
#endif
}

/// Clamped to 0..1, which a device does for nothing.
ORU_PIXEL_CODE float clampedToOne(float value) {
#ifdef __CUDA_ARCH__
    return __saturatef(value);
#else
    return std::clamp(value, 0.0F, 1.0F);
#endif
}

ORU_PIXEL_CODE std::uint32_t loadPair(const std::uint32_t* pair) {
#ifdef __CUDA_ARCH__
    return __ldg(pair);
#else
    return *pair;
#endif
}

ORU_PIXEL_CODE int smaller(int a, int b) {
    return a < b ? a : b;
}
ORU_PIXEL_CODE int clampedTo(int value, int last) {
    return value < 0 ? 0 : smaller(value, last);
}

/// A position in steps of 1 / kFractionSteps.
ORU_PIXEL_CODE int stepsOf(float position) {
#ifdef __CUDA_ARCH__
    return __float2int_rn(position * kFractionSteps);
#else
    return static_cast<int>(std::nearbyint(position * kFractionSteps));
#endif
}
/// The weights of a sample and of its right neighbour, as 16 bits each, which add up to 2^15.
ORU_PIXEL_CODE std::uint32_t weightsAt(int steps) {
    const auto part = static_cast<std::uint32_t>(steps & (kFractionSteps - 1));
    return part * 0xFFFF + kFractionSteps;
}

/// Between two rows; `upper` and `lower` are as of meanOfLower, and so is the result.
ORU_PIXEL_CODE float between(float upper, float lower, float part) {
    return upper + (lower - upper) * part;
}

/// The four pairs of pixels around a place, as two rows, and how far it lies from the upper towards the lower.
struct Window {
    std::uint32_t upperLeft, upperRight, lowerLeft, lowerRight;
    float part;
};

ORU_PIXEL_CODE Window windowAt(const PairPicture& picture, int firstPair, float y) {
    const int steps = clampedTo(stepsOf(y), picture.lastY);
    const int row = steps >> kFractionBits;
    const int nextRow = smaller(row + 1, picture.lastY >> kFractionBits);
    const int nextPair = smaller(firstPair + 1, picture.lastChroma >> kFractionBits);
    const int upper = row * picture.pairsPerRow;  // a picture has fewer pairs than 2^31
    const int lower = nextRow * picture.pairsPerRow;
    const auto part = static_cast<std::uint32_t>(steps & (kFractionSteps - 1));
    return {loadPair(picture.pairs + (upper + firstPair)), loadPair(picture.pairs + (upper + nextPair)),
            loadPair(picture.pairs + (lower + firstPair)), loadPair(picture.pairs + (lower + nextPair)),
            std::bit_cast<float>(kPartBits | part) - 256.0F};
}

/// Luma at a place, as of meanOfLower. `steps` counts from the picture's left border.
ORU_PIXEL_CODE float lumaIn(const Window& window, int firstPair, int steps) {
    // The sample is one of the first three pixels of the window: its byte is 0, 2 or 4, its neighbour's two more.
    const auto sample = static_cast<std::uint32_t>((steps >> kFractionBits) - 2 * firstPair);
    const std::uint32_t digits = 0x20 + sample * 0x22;
    const std::uint32_t weights = weightsAt(steps);
    return between(meanOfLower(weights, pickBytes(window.upperLeft, window.upperRight, digits)),
                   meanOfLower(weights, pickBytes(window.lowerLeft, window.lowerRight, digits)), window.part);
}

/// The colour of a sum of kWhole and 2^15 times luma, and of chroma less its middle, 2^15 times; as BGRA.
ORU_PIXEL_CODE std::uint32_t bgraOf(float luma, float u, float v) {
    constexpr double kUnit = 1.0 / 255 / kFractionSteps;
    constexpr auto kY = static_cast<float>(kLuma * kUnit);
    constexpr auto kOffset = static_cast<float>(-(double{kWhole} + 16.0 * kFractionSteps) * double{kY});
    const float gray = luma * kY + kOffset;
    const float blue = clampedToOne(u * static_cast<float>(kBlueOfU * kUnit) + gray);
    const float green =
        clampedToOne(u * static_cast<float>(kGreenOfU * kUnit) + (v * static_cast<float>(kGreenOfV * kUnit) + gray));
    const float red = clampedToOne(v * static_cast<float>(kRedOfV * kUnit) + gray);
    const auto rounded = [](float unit) { return std::bit_cast<std::uint32_t>(unit * 255.0F + kWhole) & 0xFF; };
    return rounded(blue) | rounded(green) << 8 | rounded(red) << 16 | 0xFF000000U;
}

}  // namespace pixel

/// Places up to half a pixel outside the picture belong to it; what is not a number lies outside.
ORU_PIXEL_CODE Sight rectifiedSight(const ViewJob& job, int u, int v) {
    const LensRays<float>::Place place = job.rays.at(u, v);
    const float halfWidth = job.picture.halfWidth;
    const float halfHeight = job.picture.halfHeight;
    const float beyond = std::fmax(std::fabs(place.x - (halfWidth - 0.5F)) - halfWidth,
                                   std::fabs(place.y - (halfHeight - 0.5F)) - halfHeight);
    if (std::fabs(beyond) > pixel::kDoubtfulMargin) {
        return {place.x, place.y, beyond < 0};
    }
    const LensRays<double>::Place exact = job.exactRays.at(u, v);
    const auto x = static_cast<float>(exact.x);
    const auto y = static_cast<float>(exact.y);
    return {x, y, x >= -0.5F && x <= 2 * halfWidth - 0.5F && y >= -0.5F && y <= 2 * halfHeight - 0.5F};
}

ORU_PIXEL_CODE Sight unrectifiedSight(const ViewJob& job, int u, int v) {
    const int x = job.flipped ? job.width - 1 - u : u;
    const int y = job.flipped ? job.height - 1 - v : v;
    return {static_cast<float>(x), static_cast<float>(y), x < job.picture.width && y < job.picture.height};
}

/// Y, U and V are interpolated between four samples each, then converted and clamped once.
ORU_PIXEL_CODE std::uint32_t bgraAt(const PairPicture& picture, const Sight& sight) {
    if (!sight.inside) {
        return 0xFF000000U;
    }
    const int steps = pixel::stepsOf(sight.x);
    const int chromaSteps = pixel::clampedTo((steps - picture.chromaSiting) >> 1, picture.lastChroma);
    const int firstPair = chromaSteps >> kFractionBits;
    const pixel::Window window = pixel::windowAt(picture, firstPair, sight.y);
    const std::uint32_t weights = pixel::weightsAt(chromaSteps);
    const std::uint32_t upper = pixel::pickBytes(window.upperLeft, window.upperRight, 0x7351);  // U, U, V, V
    const std::uint32_t lower = pixel::pickBytes(window.lowerLeft, window.lowerRight, 0x7351);
    constexpr float kMiddle = pixel::kWhole + 128.0F * kFractionSteps;
    const float u =
        pixel::between(pixel::meanOfLower(weights, upper), pixel::meanOfLower(weights, lower), window.part) - kMiddle;
    const float v =
        pixel::between(pixel::meanOfUpper(weights, upper), pixel::meanOfUpper(weights, lower), window.part) - kMiddle;
    return pixel::bgraOf(pixel::lumaIn(window, firstPair, pixel::clampedTo(steps, picture.lastX)), u, v);
}

ORU_PIXEL_CODE unsigned char grayAt(const PairPicture& picture, const Sight& sight) {
    if (!sight.inside) {
        return 0;
    }
    const int steps = pixel::clampedTo(pixel::stepsOf(sight.x), picture.lastX);
    const int firstPair = steps >> (kFractionBits + 1);
    const float luma = pixel::lumaIn(pixel::windowAt(picture, firstPair, sight.y), firstPair, steps);
    const std::uint32_t sum = std::bit_cast<std::uint32_t>(luma) + kFractionSteps / 2;
    return static_cast<unsigned char>(sum >> kFractionBits & 0xFF);
}

}  // namespace oru::rectifier
