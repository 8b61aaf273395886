// Operations that the vector library lacks, once for each instruction set: included again after every change of
// HWY_TARGET, hence no #pragma once.
#if defined(ORU_RECTIFIER_SIMD_OPS_INL_HPP) == defined(HWY_TARGET_TOGGLE)
#ifdef ORU_RECTIFIER_SIMD_OPS_INL_HPP
#undef ORU_RECTIFIER_SIMD_OPS_INL_HPP
#else
#define ORU_RECTIFIER_SIMD_OPS_INL_HPP
#endif

#include <hwy/highway.h>

// Block shuffles need vectors of at least 16 bytes; without them callers take their plain path.
#undef ORU_HAS_BLOCKS
#if HWY_TARGET == HWY_SCALAR || HWY_TARGET == HWY_EMU128
#define ORU_HAS_BLOCKS 0
#else
#define ORU_HAS_BLOCKS 1
#endif

HWY_BEFORE_NAMESPACE();
namespace oru::rectifier::HWY_NAMESPACE {
#if ORU_HAS_BLOCKS

namespace hn = hwy::HWY_NAMESPACE;

/// Sums of products of neighbouring bytes, pixels 0..255 by weights 0..127, as signed 16-bit lanes. No sum may exceed
/// 32767.
template <class D16>
HWY_INLINE hn::VFromD<D16> mulPairs(D16 d16, hn::VFromD<hn::Repartition<uint8_t, D16>> pixels,
                                    hn::VFromD<D16> weights) {
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX2 || HWY_TARGET == HWY_SSE4 || HWY_TARGET == HWY_SSSE3
    if constexpr (hn::MaxLanes(d16) == 8) {
        return hn::VFromD<D16>{_mm_maddubs_epi16(pixels.raw, weights.raw)};
    }
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX2
    else if constexpr (hn::MaxLanes(d16) == 16) {
        return hn::VFromD<D16>{_mm256_maddubs_epi16(pixels.raw, weights.raw)};
    }
#endif
#if HWY_TARGET == HWY_AVX3
    else {
        return hn::VFromD<D16>{_mm512_maddubs_epi16(pixels.raw, weights.raw)};
    }
#endif
#else
    const hn::RebindToUnsigned<D16> u16;
    const auto low = hn::Set(u16, 0xFF);
    const auto bytes = hn::BitCast(u16, pixels);
    const auto factors = hn::BitCast(u16, weights);
    const auto even = hn::Mul(hn::And(bytes, low), hn::And(factors, low));
    const auto odd = hn::Mul(hn::ShiftRight<8>(bytes), hn::ShiftRight<8>(factors));
    return hn::BitCast(d16, hn::Add(even, odd));
#endif
}

/// In each block of 16 bytes, the eight lanes of `a` and then those of `b`, each clamped to 0..255.
template <class D16>
HWY_INLINE hn::VFromD<hn::Repartition<uint8_t, D16>> packBytes(D16 d16, hn::VFromD<D16> a, hn::VFromD<D16> b) {
    const hn::Repartition<uint8_t, D16> d8;
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX2 || HWY_TARGET == HWY_SSE4 || HWY_TARGET == HWY_SSSE3
    (void)d8;
    if constexpr (hn::MaxLanes(d16) == 8) {
        return hn::VFromD<decltype(d8)>{_mm_packus_epi16(a.raw, b.raw)};
    }
#if HWY_TARGET == HWY_AVX3 || HWY_TARGET == HWY_AVX2
    else if constexpr (hn::MaxLanes(d16) == 16) {
        return hn::VFromD<decltype(d8)>{_mm256_packus_epi16(a.raw, b.raw)};
    }
#endif
#if HWY_TARGET == HWY_AVX3
    else {
        return hn::VFromD<decltype(d8)>{_mm512_packus_epi16(a.raw, b.raw)};
    }
#endif
#else
    const hn::Half<decltype(d8)> half;
    static_assert(hn::MaxLanes(d16) == 8, "one block");
    return hn::Combine(d8, hn::DemoteTo(half, b), hn::DemoteTo(half, a));
#endif
}

/// Blue, green and red lanes of eight pixels a block, clamped to 0..255, to BGRA with alpha 255: `first` has the pixels
/// 0 to 3 of each block, `second` 4 to 7.
template <class D16>
HWY_INLINE void interleaveBgra(D16 d16, hn::VFromD<D16> blue, hn::VFromD<D16> green, hn::VFromD<D16> red,
                               hn::VFromD<hn::Repartition<uint8_t, D16>>& first,
                               hn::VFromD<hn::Repartition<uint8_t, D16>>& second) {
    const hn::Repartition<uint8_t, D16> d8;
    const auto blueRed = packBytes(d16, blue, red);
    const auto greenAlpha = packBytes(d16, green, hn::Set(d16, 255));
    const auto blueGreen = hn::BitCast(d16, hn::InterleaveLower(d8, blueRed, greenAlpha));
    const auto redAlpha = hn::BitCast(d16, hn::InterleaveUpper(d8, blueRed, greenAlpha));
    first = hn::BitCast(d8, hn::InterleaveLower(d16, blueGreen, redAlpha));
    second = hn::BitCast(d8, hn::InterleaveUpper(d16, blueGreen, redAlpha));
}

/// The blocks of both vectors by turns, as memory wants them: first block of `first`, first block of `second`, ...
template <class D8, class Store>
HWY_INLINE void storeByTurns(D8 d8, hn::VFromD<D8> first, hn::VFromD<D8> second, unsigned char* out, Store store) {
    if constexpr (hn::MaxLanes(d8) == 16) {
        store(d8, first, out);
        store(d8, second, out + 16);
    } else if constexpr (hn::MaxLanes(d8) == 32) {
        store(d8, hn::ConcatLowerLower(d8, second, first), out);
        store(d8, hn::ConcatUpperUpper(d8, second, first), out + 32);
    } else {
#if HWY_TARGET == HWY_AVX3
        const __m512i low = _mm512_setr_epi64(0, 1, 8, 9, 2, 3, 10, 11);
        const __m512i high = _mm512_setr_epi64(4, 5, 12, 13, 6, 7, 14, 15);
        store(d8, hn::VFromD<D8>{_mm512_permutex2var_epi64(first.raw, low, second.raw)}, out);
        store(d8, hn::VFromD<D8>{_mm512_permutex2var_epi64(first.raw, high, second.raw)}, out + 64);
#else
        const hn::Half<D8> half;
        storeByTurns(half, hn::LowerHalf(half, first), hn::LowerHalf(half, second), out, store);
        storeByTurns(half, hn::UpperHalf(half, first), hn::UpperHalf(half, second), out + 64, store);
#endif
    }
}

// Whole vectors of the pixel kernels, no wider than the operations above.
using D8 = hn::CappedTag<uint8_t, 64>;
using D16 = hn::Repartition<int16_t, D8>;
using D32 = hn::Repartition<int32_t, D8>;
using DU16 = hn::Repartition<uint16_t, D8>;
using DU32 = hn::Repartition<uint32_t, D8>;
using DU64 = hn::Repartition<uint64_t, D8>;
using V8 = hn::VFromD<D8>;
using V16 = hn::VFromD<D16>;
using VU16 = hn::VFromD<DU16>;
using V32 = hn::VFromD<D32>;

#endif
}  // namespace oru::rectifier::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
