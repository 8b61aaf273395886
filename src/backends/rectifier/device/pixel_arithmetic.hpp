#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>

#include "backends/rectifier/reference/bt601.hpp"

// The steps of the pixel code that a device has instructions of its own for, and what is made of them. All of it
// compiles for a CUDA device and for the host alike.

#ifdef __CUDACC__
#define ORU_PIXEL_CODE __host__ __device__ inline
#else
#define ORU_PIXEL_CODE inline
#endif

namespace oru::rectifier::pixel {

// A float between 2^23 and 2^24 holds an integer in its low 23 bits.
inline constexpr std::uint32_t kWholeBits = std::bit_cast<std::uint32_t>(8388608.0F);
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

/// The weights of a sample and of its right neighbour, as 16 bits each, which add up to 2^kBits; `position` counts in
/// steps of 2^-kBits.
template <int kBits>
ORU_PIXEL_CODE std::uint32_t weightsAt(std::uint32_t position) {
    constexpr std::uint32_t kOne = 1U << kBits;
    return (position & (kOne - 1)) * 0xFFFF + kOne;
}

/// Mean of two bytes, the lower (or the upper) two of `bytes`, by weightsAt<kBits>, as a float of kWhole plus 2^kBits
/// times the mean.
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

/// Between two rows; `upper` and `lower` are as of meanOfLower, and so is the result.
ORU_PIXEL_CODE float between(float upper, float lower, float part) {
    return upper + (lower - upper) * part;
}

/// factor * value + base, clamped to 0..1; a device does it at once.
ORU_PIXEL_CODE float clampedToOne(float factor, float value, float base) {
#ifdef __CUDA_ARCH__
    float clamped = 0;
    asm("fma.rn.sat.f32 %0, %1, %2, %3;" : "=f"(clamped) : "f"(factor), "f"(value), "f"(base));
    return clamped;
#else
    return std::clamp(factor * value + base, 0.0F, 1.0F);
#endif
}

/// In single precision to two units in the last place; 0 for a denominator beyond 2^126.
ORU_PIXEL_CODE float quotient(float numerator, float denominator) {
#ifdef __CUDA_ARCH__
    float reciprocal = 0;
    asm("rcp.approx.ftz.f32 %0, %1;" : "=f"(reciprocal) : "f"(denominator));
    return numerator * reciprocal;
#else
    return numerator / denominator;
#endif
}
ORU_PIXEL_CODE double quotient(double numerator, double denominator) {
    return numerator / denominator;
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

/// The colour, as BGRA, of means as of meanOfLower: luma by weightsAt<kLumaBits>, the others by weightsAt<kChromaBits>.
template <int kLumaBits, int kChromaBits>
ORU_PIXEL_CODE std::uint32_t bgraOf(float luma, float meanOfU, float meanOfV) {
    static_assert(kLumaBits >= 8, "fewer leave gray too coarse beside kWhole");
    constexpr double kLumaUnit = 1.0 / 255 / (1 << kLumaBits);
    constexpr double kChromaUnit = 1.0 / 255 / (1 << kChromaBits);
    constexpr auto kY = static_cast<float>(kLuma * kLumaUnit);
    constexpr auto kOffset = static_cast<float>(-(double{kWhole} + 16.0 * (1 << kLumaBits)) * double{kY});
    constexpr float kMiddle = kWhole + 128.0F * (1 << kChromaBits);
    const float gray = luma * kY + kOffset;
    const float u = meanOfU - kMiddle;
    const float v = meanOfV - kMiddle;
    const float blue = clampedToOne(static_cast<float>(kBlueOfU * kChromaUnit), u, gray);
    const float green = clampedToOne(static_cast<float>(kGreenOfU * kChromaUnit), u,
                                     v * static_cast<float>(kGreenOfV * kChromaUnit) + gray);
    const float red = clampedToOne(static_cast<float>(kRedOfV * kChromaUnit), v, gray);
    constexpr float kOpaque = 255.0F * 256;  // in the byte above that of red
    const auto rounded = [](float unit, float whole) { return std::bit_cast<std::uint32_t>(unit * 255.0F + whole); };
    const std::uint32_t blueGreen = pickBytes(rounded(blue, kWhole), rounded(green, kWhole), 0x0040);
    return pickBytes(blueGreen, rounded(red, kWhole + kOpaque), 0x5410);
}

}  // namespace oru::rectifier::pixel
