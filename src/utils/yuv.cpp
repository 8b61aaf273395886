#include "utils/yuv.hpp"

#include <cstdint>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "utils/yuv.cpp"
#define HWY_DISABLED_TARGETS (HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128)
#include <hwy/foreach_target.h>
// Must follow foreach_target.h.
#include <hwy/highway.h>

#ifndef ORU_YUV_ONCE
#define ORU_YUV_ONCE
namespace oru::yuv {

/// One or, for 4:2:0, two rows of packed pixels and what they are split into. With one row the second is null.
struct SplitRows {
    const unsigned char* packed;
    const unsigned char* second_packed;
    unsigned char* y;
    unsigned char* second_y;
    unsigned char* u;
    unsigned char* v;
};

}  // namespace oru::yuv
#endif

HWY_BEFORE_NAMESPACE();
namespace oru::yuv::HWY_NAMESPACE {

unsigned char mean(unsigned char a, unsigned char b) {
    return static_cast<unsigned char>((a + b + 1) / 2);
}

void splitPairs(const SplitRows& rows, std::size_t firstPair, std::size_t pairs) {
    for (std::size_t pair = firstPair; pair < pairs; ++pair) {
        const unsigned char* packed = rows.packed + 4 * pair;
        rows.y[2 * pair] = packed[0];
        rows.y[2 * pair + 1] = packed[2];
        if (rows.second_packed == nullptr) {
            rows.u[pair] = packed[1];
            rows.v[pair] = packed[3];
            continue;
        }
        const unsigned char* second = rows.second_packed + 4 * pair;
        rows.second_y[2 * pair] = second[0];
        rows.second_y[2 * pair + 1] = second[2];
        rows.u[pair] = mean(packed[1], second[1]);
        rows.v[pair] = mean(packed[3], second[3]);
    }
}

void joinPairs(const unsigned char* y, const unsigned char* u, const unsigned char* v, unsigned char* packed,
               std::size_t firstPair, std::size_t pairs) {
    for (std::size_t pair = firstPair; pair < pairs; ++pair) {
        packed[4 * pair] = y[2 * pair];
        packed[4 * pair + 1] = u[pair];
        packed[4 * pair + 2] = y[2 * pair + 1];
        packed[4 * pair + 3] = v[pair];
    }
}

#if HWY_TARGET == HWY_SCALAR || HWY_TARGET == HWY_EMU128

void splitRow(const SplitRows& rows, std::size_t pairs) {
    splitPairs(rows, 0, pairs);
}

void joinRow(const unsigned char* y, const unsigned char* u, const unsigned char* v, unsigned char* packed,
             std::size_t pairs) {
    joinPairs(y, u, v, packed, 0, pairs);
}

#else

namespace hn = hwy::HWY_NAMESPACE;

using Words = hn::ScalableTag<uint16_t>;          // a pixel each: luma below, U or V above
using Bytes = hn::Rebind<uint8_t, Words>;         // luma, or U and V by turns
using Chroma = hn::Repartition<uint16_t, Bytes>;  // a pair each: U below, V above
using ChromaBytes = hn::Rebind<uint8_t, Chroma>;

using Packed = hn::Repartition<uint8_t, Words>;

/// Writes the luma of two vectors of packed pixels and returns their chroma, U and V by turns.
HWY_INLINE hn::VFromD<Packed> splitLuma(const unsigned char* packed, unsigned char* y) {
    const Packed d;
    const auto first = hn::LoadU(d, packed);
    const auto second = hn::LoadU(d, packed + hn::Lanes(d));
    hn::StoreU(hn::ConcatEven(d, second, first), d, y);
    return hn::ConcatOdd(d, second, first);
}

void splitRow(const SplitRows& rows, std::size_t pairs) {
    const Packed d;
    const std::size_t step = hn::Lanes(d);  // pairs: four vectors of packed pixels
    std::size_t pair = 0;
    for (; pair + step <= pairs; pair += step) {
        const auto chromaOf = [&](const unsigned char* packed, unsigned char* y, std::size_t half) HWY_ATTR {
            return splitLuma(packed + 4 * pair + 2 * half * step, y + 2 * pair + half * step);
        };
        auto first = chromaOf(rows.packed, rows.y, 0);
        auto second = chromaOf(rows.packed, rows.y, 1);
        if (rows.second_packed != nullptr) {
            first = hn::AverageRound(first, chromaOf(rows.second_packed, rows.second_y, 0));
            second = hn::AverageRound(second, chromaOf(rows.second_packed, rows.second_y, 1));
        }
        hn::StoreU(hn::ConcatEven(d, second, first), d, rows.u + pair);
        hn::StoreU(hn::ConcatOdd(d, second, first), d, rows.v + pair);
    }
    splitPairs(rows, pair, pairs);
}

void joinRow(const unsigned char* y, const unsigned char* u, const unsigned char* v, unsigned char* packed,
             std::size_t pairs) {
    const Words d;
    const Bytes bytes;
    const Chroma chromaWords;
    const ChromaBytes chromaBytes;
    const Packed packedBytes;
    const std::size_t step = hn::Lanes(d) / 2;
    std::size_t pair = 0;
    for (; pair + step <= pairs; pair += step) {
        const auto luma = hn::PromoteTo(d, hn::LoadU(bytes, y + 2 * pair));
        const auto uWords = hn::PromoteTo(chromaWords, hn::LoadU(chromaBytes, u + pair));
        const auto vWords = hn::PromoteTo(chromaWords, hn::LoadU(chromaBytes, v + pair));
        const auto chroma = hn::PromoteTo(d, hn::BitCast(bytes, hn::Or(uWords, hn::ShiftLeft<8>(vWords))));
        hn::StoreU(hn::BitCast(packedBytes, hn::Or(luma, hn::ShiftLeft<8>(chroma))), packedBytes, packed + 4 * pair);
    }
    joinPairs(y, u, v, packed, pair, pairs);
}

#endif
}  // namespace oru::yuv::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace oru {
namespace yuv {

HWY_EXPORT(splitRow);
HWY_EXPORT(joinRow);

namespace {

auto bestSplit() {
    return HWY_DYNAMIC_DISPATCH(splitRow);
}

auto bestJoin() {
    return HWY_DYNAMIC_DISPATCH(joinRow);
}

}  // namespace
}  // namespace yuv

void yuyvToI422(const unsigned char* yuyv, std::size_t yuyvStep, const YuvPlanes& planes, std::size_t width,
                std::size_t height) {
    const auto split = yuv::bestSplit();
    for (std::size_t row = 0; row < height; ++row) {
        split({yuyv + row * yuyvStep, nullptr, planes.y + row * planes.y_step, nullptr, planes.u + row * planes.u_step,
               planes.v + row * planes.v_step},
              width / 2);
    }
}

void yuyvToI420(const unsigned char* yuyv, std::size_t yuyvStep, const YuvPlanes& planes, std::size_t width,
                std::size_t height) {
    const auto split = yuv::bestSplit();
    for (std::size_t row = 0; row < height; row += 2) {
        const bool alone = row + 1 == height;
        const unsigned char* upper = yuyv + row * yuyvStep;
        unsigned char* upperY = planes.y + row * planes.y_step;
        split({upper, alone ? nullptr : upper + yuyvStep, upperY, alone ? nullptr : upperY + planes.y_step,
               planes.u + row / 2 * planes.u_step, planes.v + row / 2 * planes.v_step},
              width / 2);
    }
}

void i422ToYuyv(const ConstYuvPlanes& planes, unsigned char* yuyv, std::size_t yuyvStep, std::size_t width,
                std::size_t height) {
    const auto join = yuv::bestJoin();
    for (std::size_t row = 0; row < height; ++row) {
        join(planes.y + row * planes.y_step, planes.u + row * planes.u_step, planes.v + row * planes.v_step,
             yuyv + row * yuyvStep, width / 2);
    }
}

void i420ToYuyv(const ConstYuvPlanes& planes, unsigned char* yuyv, std::size_t yuyvStep, std::size_t width,
                std::size_t height) {
    const auto join = yuv::bestJoin();
    for (std::size_t row = 0; row < height; ++row) {
        join(planes.y + row * planes.y_step, planes.u + row / 2 * planes.u_step, planes.v + row / 2 * planes.v_step,
             yuyv + row * yuyvStep, width / 2);
    }
}

}  // namespace oru
#endif
