#include "convert_kernel.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "bt601.hpp"
#include "plain_view.hpp"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "backends/rectifier/cpu/convert_kernel.cpp"
#define HWY_DISABLED_TARGETS (HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128)
#include <hwy/foreach_target.h>
// Must follow foreach_target.h.
#include <hwy/cache_control.h>
#include <hwy/highway.h>

#include "backends/rectifier/cpu/simd_ops-inl.hpp"

#ifndef ORU_CONVERT_KERNEL_ONCE
#define ORU_CONVERT_KERNEL_ONCE
namespace oru::rectifier {

/// How much of the neighbouring chroma sample each pixel of a pair takes, in 1/128.
struct ChromaShares {
    int previousOfEven;
    int nextOfOdd;
};

}  // namespace oru::rectifier
#endif

HWY_BEFORE_NAMESPACE();
namespace oru::rectifier::HWY_NAMESPACE {
#if ORU_HAS_BLOCKS

using D8 = hn::CappedTag<uint8_t, 64>;
using D16 = hn::Repartition<int16_t, D8>;
using DU16 = hn::Repartition<uint16_t, D8>;
using DU32 = hn::Repartition<uint32_t, D8>;
using V8 = hn::VFromD<D8>;
using V16 = hn::VFromD<D16>;

constexpr int kVectorBytes = static_cast<int>(hn::MaxLanes(D8()));
constexpr int kPixels = kVectorBytes / 2;  // of a step
constexpr int kMargin = 4;                 // bytes read before and after the step's own: one pair of pixels
constexpr int kColorBits = 5;
constexpr int kShareBits = 7;

constexpr int16_t chromaFactor(double factor) {
    return static_cast<int16_t>(factor * (1 << (15 + kColorBits - kShareBits)) + 0.5);
}

/// Half a level for rounding, and half a step for the luma product, which is cut off.
constexpr int16_t colorBias(double chromaFactors) {
    const double bias = -(16 * kLuma + 128 * chromaFactors) * (1 << kColorBits) + (1 << (kColorBits - 1)) + 0.5;
    return static_cast<int16_t>(bias < 0 ? bias - 0.5 : bias + 0.5);
}

/// Chroma of the even and of the odd pixels, each as U and V by turns, times 128.
struct Chroma {
    V16 even;
    V16 odd;
};

template <bool kCoSited>
HWY_INLINE Chroma chromaOf(const unsigned char* in, ChromaShares shares) {
    const D8 d8;
    const DU16 u16;
    const D16 d16;
    const auto chromaAt = [&](const unsigned char* from) HWY_ATTR {
        return hn::BitCast(d16, hn::ShiftRight<8>(hn::BitCast(u16, hn::LoadU(d8, from))));
    };
    const auto own = chromaAt(in);
    const auto next = chromaAt(in + kMargin);
    if constexpr (kCoSited) {
        return {hn::ShiftLeft<kShareBits>(own), hn::ShiftLeft<kShareBits - 1>(hn::Add(own, next))};
    } else {
        const auto mixed = [&](V16 neighbour, int share) HWY_ATTR {
            return hn::Add(hn::ShiftLeft<kShareBits>(own),
                           hn::Mul(hn::Sub(neighbour, own), hn::Set(d16, static_cast<int16_t>(share))));
        };
        return {mixed(chromaAt(in - kMargin), shares.previousOfEven), mixed(next, shares.nextOfOdd)};
    }
}

/// The low halves of the 32-bit words of `even` and of `odd` by turns: what belongs to the pixels 0, 1, 2, ...
HWY_INLINE V16 lowByTurns(V16 even, V16 odd) {
    const DU32 d;
    const auto low = hn::Set(d, 0xFFFF);
    return hn::BitCast(D16(), hn::Or(hn::And(hn::BitCast(d, even), low), hn::ShiftLeft<16>(hn::BitCast(d, odd))));
}

HWY_INLINE V16 highByTurns(V16 even, V16 odd) {
    const DU32 d;
    const auto low = hn::Set(d, 0xFFFF);
    return hn::BitCast(D16(), hn::Or(hn::ShiftRight<16>(hn::BitCast(d, even)), hn::AndNot(low, hn::BitCast(d, odd))));
}

template <bool kStream>
HWY_INLINE void storeBytes(V8 pixels, unsigned char* out) {
    if constexpr (kStream) {
        hn::Stream(pixels, D8(), out);
    } else {
        hn::StoreU(pixels, D8(), out);
    }
}

/// In each word, both halves become their sum.
HWY_INLINE V16 sumOfHalves(V16 value) {
    const DU32 d;
    const auto words = hn::BitCast(d, value);
    return hn::Add(value, hn::BitCast(D16(), hn::Or(hn::ShiftLeft<16>(words), hn::ShiftRight<16>(words))));
}

template <bool kCoSited, bool kFlip, bool kStream>
HWY_INLINE void bgraStep(const unsigned char* in, ChromaShares shares, unsigned char* out) {
    const D16 d;
    const D8 d8;
    const DU16 u16;
    const auto words = [&](double low, double high) HWY_ATTR {
        const DU32 d32;
        return hn::BitCast(d,
                           hn::Set(d32, static_cast<uint16_t>(chromaFactor(low)) |
                                            (static_cast<uint32_t>(static_cast<uint16_t>(chromaFactor(high))) << 16)));
    };
    const auto pixels = hn::BitCast(u16, hn::LoadU(d8, in));
    const auto luma =
        hn::BitCast(d, hn::MulHigh(hn::ShiftLeft<8>(pixels),
                                   hn::Set(u16, static_cast<uint16_t>(kLuma * (1 << (8 + kColorBits)) + 0.5))));
    const Chroma chroma = chromaOf<kCoSited>(in, shares);
    const auto blueRed = words(kBlueOfU, kRedOfV);
    const auto evenBlueRed = hn::MulFixedPoint15(chroma.even, blueRed);
    const auto oddBlueRed = hn::MulFixedPoint15(chroma.odd, blueRed);
    const auto greens = words(-kGreenOfU, -kGreenOfV);
    const auto evenGreen = sumOfHalves(hn::MulFixedPoint15(chroma.even, greens));
    const auto oddGreen = sumOfHalves(hn::MulFixedPoint15(chroma.odd, greens));
    const auto level = [&](V16 color, double factors) HWY_ATTR {
        return hn::ShiftRight<kColorBits>(hn::Add(hn::Add(luma, hn::Set(d, colorBias(factors))), color));
    };
    const auto blue = level(lowByTurns(evenBlueRed, oddBlueRed), kBlueOfU);
    const auto red = level(highByTurns(evenBlueRed, oddBlueRed), kRedOfV);
    const auto green = level(hn::Neg(lowByTurns(evenGreen, oddGreen)), kGreenOfU + kGreenOfV);
    V8 first;
    V8 second;
    interleaveBgra(d, blue, green, red, first, second);
    if constexpr (kFlip) {
        HWY_ALIGN unsigned char turned[4 * kPixels];
        storeByTurns(d8, first, second, turned,
                     [](auto tag, auto bytes, unsigned char* to) HWY_ATTR { hn::Store(bytes, tag, to); });
        const DU32 d32;
        const auto reversed = [&](int half) HWY_ATTR {
            const auto pixelWords = hn::Load(d8, turned + half * kVectorBytes);
            return hn::BitCast(d8, hn::Reverse(d32, hn::BitCast(d32, pixelWords)));
        };
        storeBytes<kStream>(reversed(1), out);
        storeBytes<kStream>(reversed(0), out + kVectorBytes);
    } else {
        storeByTurns(d8, first, second, out, [](auto tag, auto bytes, unsigned char* to) HWY_ATTR {
            if constexpr (kStream) {
                hn::Stream(bytes, tag, to);
            } else {
                hn::StoreU(bytes, tag, to);
            }
        });
    }
}

template <bool kFlip, bool kStream>
HWY_INLINE void grayStep(const unsigned char* in, unsigned char* out) {
    const D8 d8;
    const D16 d;
    const DU16 u16;
    const hn::Rebind<uint8_t, D16> bytes;
    const auto luma = hn::And(hn::BitCast(u16, hn::LoadU(d8, in)), hn::Set(u16, 0xFF));
    auto packed = hn::DemoteTo(bytes, hn::BitCast(d, luma));
    if constexpr (kFlip) {
        packed = hn::DemoteTo(bytes, hn::BitCast(d, hn::Reverse(u16, luma)));
    }
    if constexpr (kStream) {
        hn::Stream(packed, bytes, out);
    } else {
        hn::StoreU(packed, bytes, out);
    }
}

template <bool kGray, bool kCoSited, bool kFlip, bool kStream>
HWY_INLINE void step(const unsigned char* in, ChromaShares shares, unsigned char* out) {
    if constexpr (kGray) {
        grayStep<kFlip, kStream>(in, out);
    } else {
        bgraStep<kCoSited, kFlip, kStream>(in, shares, out);
    }
}

/// Draws `count` pixels from `first` on through a copy whose margins repeat the picture's outer pairs.
template <bool kGray, bool kCoSited, bool kFlip>
void edgeStep(const unsigned char* row, int rowBytes, ChromaShares shares, int first, int count, int width,
              unsigned char* out) {
    constexpr int kPixelBytes = kGray ? 1 : 4;
    HWY_ALIGN unsigned char in[kVectorBytes + 2 * kMargin];
    HWY_ALIGN unsigned char drawn[kPixels * kPixelBytes];
    for (int byte = 0; byte < kVectorBytes + 2 * kMargin; byte += kMargin) {
        const int from = std::clamp(2 * first - kMargin + byte, 0, rowBytes - kMargin);
        std::memcpy(in + byte, row + from, kMargin);
    }
    step<kGray, kCoSited, kFlip, false>(in + kMargin, shares, drawn);
    const int skipped = kFlip ? kPixels - count : 0;
    const int begin = kFlip ? width - first - count : first;
    std::memcpy(out + begin * kPixelBytes, drawn + skipped * kPixelBytes,
                static_cast<std::size_t>(count * kPixelBytes));
}

template <bool kGray, bool kCoSited, bool kFlip, bool kStream>
void drawLine(const unsigned char* row, int width, ChromaShares shares, unsigned char* out) {
    constexpr int kPixelBytes = kGray ? 1 : 4;
    const int rowBytes = (width + 1) / 2 * 4;
    int first = 0;
    if constexpr (!kGray && !kCoSited) {
        first = std::min(width, kPixels);
        edgeStep<kGray, kCoSited, kFlip>(row, rowBytes, shares, 0, first, width, out);
    }
    for (; 2 * (first + kPixels) + kMargin <= rowBytes; first += kPixels) {
        const int begin = kFlip ? width - first - kPixels : first;
        step<kGray, kCoSited, kFlip, kStream>(row + 2 * first, shares, out + begin * kPixelBytes);
    }
    for (; first < width; first += kPixels) {
        edgeStep<kGray, kCoSited, kFlip>(row, rowBytes, shares, first, std::min(kPixels, width - first), width, out);
    }
}

using LineFunction = void (*)(const unsigned char*, int, ChromaShares, unsigned char*);

template <bool kFlip, bool kStream>
LineFunction lineFunctionOf(bool gray, bool coSited) {
    if (gray) {
        return drawLine<true, true, kFlip, kStream>;
    }
    return coSited ? drawLine<false, true, kFlip, kStream> : drawLine<false, false, kFlip, kStream>;
}

void drawRows(const YuyvFrame& frame, const ViewTarget& target, bool flipped, bool streaming, int firstRow,
              int endRow) {
    const auto toShare = [](float part) { return static_cast<int>(part * (1 << kShareBits) + 0.5F); };
    const ChromaShares shares{toShare(frame.chroma_siting / 2), toShare((1 - frame.chroma_siting) / 2)};
    const bool coSited = frame.chroma_siting == 0;
    const auto rowBytes = static_cast<std::size_t>(target.width) * target.pixelBytes();
    streaming = streaming && (reinterpret_cast<std::uintptr_t>(target.pixels) | target.step | rowBytes) % 64 == 0;
    const LineFunction draw =
        flipped ? (streaming ? lineFunctionOf<true, true> : lineFunctionOf<true, false>)(target.gray, coSited)
                : (streaming ? lineFunctionOf<false, true> : lineFunctionOf<false, false>)(target.gray, coSited);
    for (int row = firstRow; row < endRow; ++row) {
        draw(frame.row(flipped ? frame.height - 1 - row : row), target.width, shares, target.row(row));
    }
    if (streaming) {
        hwy::FlushStream();
    }
}

#else

void drawRows(const YuyvFrame& frame, const ViewTarget& target, bool flipped, bool, int firstRow, int endRow) {
    for (int row = firstRow; row < endRow; ++row) {
        for (int u = 0; u < target.width; ++u) {
            const SourcePosition position{static_cast<float>(flipped ? frame.width - 1 - u : u),
                                          static_cast<float>(flipped ? frame.height - 1 - row : row)};
            unsigned char* out = target.row(row) + static_cast<std::size_t>(u) * target.pixelBytes();
            target.gray ? drawGray(frame, &position, 1, out) : drawBgra(frame, &position, 1, out);
        }
    }
}

#endif
}  // namespace oru::rectifier::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace oru::rectifier {

HWY_EXPORT(drawRows);

void drawUnrectifiedRows(const YuyvFrame& frame, const ViewTarget& target, bool flipped, bool streaming, int firstRow,
                         int endRow) {
    HWY_DYNAMIC_DISPATCH(drawRows)(frame, target, flipped, streaming, firstRow, endRow);
}

}  // namespace oru::rectifier
#endif
