#include "backends/rectifier/cpu/convert_kernel.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "backends/rectifier/reference/bt601.hpp"
#include "backends/rectifier/reference/reference_view.hpp"

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
    int previous_of_even;
    int next_of_odd;
};

}  // namespace oru::rectifier
#endif

HWY_BEFORE_NAMESPACE();
namespace oru::rectifier::HWY_NAMESPACE {
namespace {
#if ORU_HAS_BLOCKS

constexpr int kVectorBytes = static_cast<int>(hn::MaxLanes(D8()));
constexpr int kMargin = 4;  // bytes read before and after a step's own: one pair of pixels
constexpr int kColorBits = 5;
constexpr int kShareBits = 7;

/// Pixels of a step; gray ones fill a whole vector.
constexpr int stepPixels(bool gray) {
    return gray ? kVectorBytes : kVectorBytes / 2;
}

/// For samples times 256, to levels with kColorBits of fraction in the upper half of the product.
constexpr uint16_t colorFactor(double factor) {
    return static_cast<uint16_t>(factor * (1 << (8 + kColorBits)) + 0.5);
}

/// The offsets of the components, half a level for rounding, and half a step for each product, which is cut off.
constexpr int16_t colorBias(double chromaFactors, double cutOff) {
    const double bias = -(16 * kLuma + 128 * chromaFactors) * (1 << kColorBits) + (1 << (kColorBits - 1)) + cutOff;
    return static_cast<int16_t>(bias < 0 ? bias - 0.5 : bias + 0.5);
}

/// Chroma of the even and of the odd pixels, each as U and V by turns, times 256.
struct Chroma {
    VU16 even;
    VU16 odd;
};

template <bool kCoSited>
HWY_INLINE Chroma chromaOf(const unsigned char* in, ChromaShares shares) {
    const D8 d8;
    const DU16 d;
    const auto chromaAt = [&](const unsigned char* from)
                              HWY_ATTR { return hn::And(hn::BitCast(d, hn::LoadU(d8, from)), hn::Set(d, 0xFF00)); };
    const auto own = chromaAt(in);
    const auto next = chromaAt(in + kMargin);
    if constexpr (kCoSited) {
        return {own, hn::AverageRound(own, next)};
    } else {
        const auto share = [&](VU16 value, int part) HWY_ATTR {
            return hn::Mul(hn::ShiftRight<8>(value), hn::Set(d, static_cast<uint16_t>(part)));
        };
        constexpr int kWhole = 1 << kShareBits;
        const auto previous = chromaAt(in - kMargin);
        const auto even =
            hn::Add(share(own, kWhole - shares.previous_of_even), share(previous, shares.previous_of_even));
        const auto odd = hn::Add(share(own, kWhole - shares.next_of_odd), share(next, shares.next_of_odd));
        return {hn::ShiftLeft<8 - kShareBits>(even), hn::ShiftLeft<8 - kShareBits>(odd)};
    }
}

/// The first component of the even and of the odd pixels by turns: what belongs to the pixels 0, 1, 2, ...
HWY_INLINE VU16 firstByTurns(const Chroma& chroma) {
    const DU32 d;
    const auto moved = hn::ShiftLeft<16>(hn::BitCast(d, chroma.odd));
    return hn::OddEven(hn::BitCast(DU16(), moved), chroma.even);
}

HWY_INLINE VU16 secondByTurns(const Chroma& chroma) {
    const DU32 d;
    const auto moved = hn::ShiftRight<16>(hn::BitCast(d, chroma.even));
    return hn::OddEven(chroma.odd, hn::BitCast(DU16(), moved));
}

template <bool kStream>
HWY_INLINE void storeBytes(V8 pixels, unsigned char* out) {
    if constexpr (kStream) {
        hn::Stream(pixels, D8(), out);
    } else {
        hn::StoreU(pixels, D8(), out);
    }
}

template <bool kCoSited, bool kFlip, bool kStream>
HWY_INLINE void bgraStep(const unsigned char* in, ChromaShares shares, unsigned char* out) {
    const D16 d;
    const D8 d8;
    const DU16 u16;
    const auto scaled = [&](VU16 samples, double factor) HWY_ATTR {
        return hn::BitCast(d, hn::MulHigh(samples, hn::Set(u16, colorFactor(factor))));
    };
    const auto luma = scaled(hn::ShiftLeft<8>(hn::BitCast(u16, hn::LoadU(d8, in))), kLuma);
    const Chroma chroma = chromaOf<kCoSited>(in, shares);
    const auto u = firstByTurns(chroma);
    const auto v = secondByTurns(chroma);
    const auto biased = [&](double chromaFactors, double cutOff)
                            HWY_ATTR { return hn::Add(luma, hn::Set(d, colorBias(chromaFactors, cutOff))); };
    const auto lessGreen = hn::Add(scaled(u, -kGreenOfU), scaled(v, -kGreenOfV));
    const auto blue = hn::ShiftRight<kColorBits>(hn::Add(biased(kBlueOfU, 1), scaled(u, kBlueOfU)));
    const auto red = hn::ShiftRight<kColorBits>(hn::Add(biased(kRedOfV, 1), scaled(v, kRedOfV)));
    const auto green = hn::ShiftRight<kColorBits>(hn::Sub(biased(kGreenOfU + kGreenOfV, -0.5), lessGreen));
    V8 first;
    V8 second;
    interleaveBgra(d, blue, green, red, first, second);
    if constexpr (kFlip) {
        HWY_ALIGN unsigned char turned[2 * kVectorBytes];
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
    const hn::Half<D8> half;
    const hn::Rebind<uint8_t, D16> bytes;
    static_assert(hn::MaxLanes(half) == hn::MaxLanes(bytes), "two halves make a vector");
    const auto lumaAt = [&](const unsigned char* from) HWY_ATTR {
        const auto luma = hn::And(hn::BitCast(d, hn::LoadU(d8, from)), hn::Set(d, 0xFF));
        return hn::DemoteTo(bytes, kFlip ? hn::Reverse(d, luma) : luma);
    };
    const auto first = lumaAt(in);
    const auto second = lumaAt(in + kVectorBytes);
    storeBytes<kStream>(kFlip ? hn::Combine(d8, first, second) : hn::Combine(d8, second, first), out);
}

template <bool kGray, bool kCoSited, bool kFlip, bool kStream>
HWY_INLINE void step(const unsigned char* in, ChromaShares shares, unsigned char* out) {
    if constexpr (kGray) {
        grayStep<kFlip, kStream>(in, out);
    } else {
        bgraStep<kCoSited, kFlip, kStream>(in, shares, out);
    }
}

/// Draws `count` pixels from `first` on through a copy whose margins repeat the image's outer pairs.
template <bool kGray, bool kCoSited, bool kFlip>
void edgeStep(const unsigned char* row, int rowBytes, ChromaShares shares, int first, int count, int width,
              unsigned char* out) {
    constexpr int kPixelBytes = kGray ? 1 : 4;
    constexpr int kPixels = stepPixels(kGray);
    HWY_ALIGN unsigned char in[2 * kPixels + 2 * kMargin];
    HWY_ALIGN unsigned char drawn[kPixels * kPixelBytes];
    for (int byte = 0; byte < 2 * kPixels + 2 * kMargin; byte += kMargin) {
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
    constexpr int kPixels = stepPixels(kGray);
    constexpr int kReadBehind = kGray ? 0 : kMargin;
    const int rowBytes = (width + 1) / 2 * 4;
    int first = 0;
    if constexpr (!kGray && !kCoSited) {
        first = std::min(width, kPixels);
        edgeStep<kGray, kCoSited, kFlip>(row, rowBytes, shares, 0, first, width, out);
    }
    for (; first + kPixels <= width && 2 * (first + kPixels) + kReadBehind <= rowBytes; first += kPixels) {
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
}  // namespace
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
