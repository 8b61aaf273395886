#include "backends/rectifier/cpu/halve_kernel.hpp"

#include <cstdint>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "backends/rectifier/cpu/halve_kernel.cpp"
#define HWY_DISABLED_TARGETS (HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128)
#include <hwy/foreach_target.h>
// Must follow foreach_target.h.
#include <hwy/highway.h>

#include "backends/rectifier/cpu/simd_ops-inl.hpp"

HWY_BEFORE_NAMESPACE();
namespace oru::rectifier::HWY_NAMESPACE {
namespace {

/// Two pixels of four columns of two rows.
void halvePair(const unsigned char* upper, const unsigned char* lower, unsigned char* out) {
    const auto mean = [&](int left, int right) {
        return static_cast<unsigned char>((upper[left] + upper[right] + lower[left] + lower[right] + 2) / 4);
    };
    out[0] = mean(0, 2);
    out[1] = mean(1, 5);
    out[2] = mean(4, 6);
    out[3] = mean(3, 7);
}

#if ORU_HAS_BLOCKS

/// The rounded means of two rows of packed pixels, in the low half of each 64-bit word.
template <class D8>
HWY_INLINE hn::VFromD<hn::Repartition<uint32_t, D8>> meansOf(D8 d8, const unsigned char* upper,
                                                             const unsigned char* lower) {
    const hn::Repartition<uint16_t, D8> d16;
    const hn::Repartition<uint32_t, D8> d32;
    const hn::Repartition<uint64_t, D8> d64;
    const auto up = hn::BitCast(d16, hn::LoadU(d8, upper));
    const auto low = hn::BitCast(d16, hn::LoadU(d8, lower));
    const auto byteMask = hn::Set(d16, 0xFF);
    const auto luma = hn::BitCast(d32, hn::Add(hn::And(up, byteMask), hn::And(low, byteMask)));
    const auto chroma = hn::BitCast(d64, hn::Add(hn::ShiftRight<8>(up), hn::ShiftRight<8>(low)));
    const auto lumaSum = hn::Add(hn::And(luma, hn::Set(d32, 0xFFFF)), hn::ShiftRight<16>(luma));
    const auto lumaMean = hn::BitCast(d64, hn::ShiftRight<2>(hn::Add(lumaSum, hn::Set(d32, 2))));
    const auto chromaSum = hn::Add(hn::BitCast(d16, chroma), hn::BitCast(d16, hn::ShiftRight<32>(chroma)));
    const auto chromaMean = hn::ShiftRight<2>(hn::Add(chromaSum, hn::Set(d16, 2)));
    const auto lumaBytes = hn::BitCast(d16, hn::Or(lumaMean, hn::ShiftRight<16>(lumaMean)));
    return hn::BitCast(d32, hn::Or(lumaBytes, hn::ShiftLeft<8>(chromaMean)));
}

/// The rounded means of luma alone, one in each 32-bit word.
template <class D8>
HWY_INLINE hn::VFromD<hn::Repartition<uint16_t, D8>> lumaMeansOf(D8 d8, const unsigned char* upper,
                                                                 const unsigned char* lower) {
    const hn::Repartition<uint16_t, D8> d16;
    const hn::Repartition<uint32_t, D8> d32;
    const auto byteMask = hn::Set(d16, 0xFF);
    const auto up = hn::And(hn::BitCast(d16, hn::LoadU(d8, upper)), byteMask);
    const auto low = hn::And(hn::BitCast(d16, hn::LoadU(d8, lower)), byteMask);
    const auto sums = hn::Add(up, low);
    const auto both = hn::Add(sums, hn::BitCast(d16, hn::ShiftRight<16>(hn::BitCast(d32, sums))));
    return hn::ShiftRight<2>(hn::Add(both, hn::Set(d16, 2)));
}

int halveLumaVectors(const unsigned char* upper, const unsigned char* lower, int columns, unsigned char* out) {
    const hn::CappedTag<uint8_t, 64> d8;
    const hn::Repartition<uint16_t, decltype(d8)> d16;
    const int bytes = static_cast<int>(hn::Lanes(d8));
    int column = 0;
    for (; 4 * column + 4 * bytes <= 2 * columns; column += bytes) {
        const auto pair = [&](int offset) HWY_ATTR {
            const int at = 4 * column + offset;
            const auto first = lumaMeansOf(d8, upper + at, lower + at);
            const auto second = lumaMeansOf(d8, upper + at + bytes, lower + at + bytes);
            return hn::BitCast(d8, hn::ConcatEven(d16, second, first));
        };
        const auto first = pair(0);
        hn::StoreU(hn::ConcatEven(d8, pair(2 * bytes), first), d8, out + column);
    }
    return column;
}

int halveVectors(const unsigned char* upper, const unsigned char* lower, int columns, unsigned char* out) {
    const hn::ScalableTag<uint8_t> d8;
    const hn::Repartition<uint32_t, decltype(d8)> d32;
    const int bytes = static_cast<int>(hn::Lanes(d8));
    int column = 0;
    for (; 2 * column + 2 * bytes <= 2 * columns; column += bytes) {
        const auto first = meansOf(d8, upper + 2 * column, lower + 2 * column);
        const auto second = meansOf(d8, upper + 2 * column + bytes, lower + 2 * column + bytes);
        hn::StoreU(hn::BitCast(d8, hn::ConcatEven(d32, second, first)), d8, out + column);
    }
    return column;
}

#else

int halveLumaVectors(const unsigned char*, const unsigned char*, int, unsigned char*) {
    return 0;
}

int halveVectors(const unsigned char*, const unsigned char*, int, unsigned char*) {
    return 0;
}

#endif

void halve(const YuyvFrame& frame, unsigned char* output, std::size_t outputStep, int firstRow, int endRow) {
    for (int row = firstRow; row < endRow; ++row) {
        const unsigned char* upper = frame.row(2 * row);
        const unsigned char* lower = frame.row(2 * row + 1);
        unsigned char* out = output + static_cast<std::size_t>(row) * outputStep;
        for (int column = halveVectors(upper, lower, frame.width, out); column < frame.width; column += 4) {
            halvePair(upper + 2 * column, lower + 2 * column, out + column);
        }
    }
}

void halveLuma(const YuyvFrame& frame, unsigned char* output, std::size_t outputStep, int firstRow, int endRow) {
    for (int row = firstRow; row < endRow; ++row) {
        const unsigned char* upper = frame.row(2 * row);
        const unsigned char* lower = frame.row(2 * row + 1);
        unsigned char* out = output + static_cast<std::size_t>(row) * outputStep;
        for (int column = halveLumaVectors(upper, lower, frame.width, out); column < frame.width / 2; ++column) {
            const unsigned char* up = upper + 4 * column;
            const unsigned char* low = lower + 4 * column;
            out[column] = static_cast<unsigned char>((up[0] + up[2] + low[0] + low[2] + 2) / 4);
        }
    }
}

}  // namespace
}  // namespace oru::rectifier::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace oru::rectifier {

HWY_EXPORT(halve);
HWY_EXPORT(halveLuma);

void halveRows(const YuyvFrame& frame, unsigned char* output, std::size_t outputStep, int firstRow, int endRow) {
    HWY_DYNAMIC_DISPATCH(halve)(frame, output, outputStep, firstRow, endRow);
}

void halveLumaRows(const YuyvFrame& frame, unsigned char* output, std::size_t outputStep, int firstRow, int endRow) {
    HWY_DYNAMIC_DISPATCH(halveLuma)(frame, output, outputStep, firstRow, endRow);
}

}  // namespace oru::rectifier
#endif
