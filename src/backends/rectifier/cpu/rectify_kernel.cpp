#include "rectify_kernel.hpp"

#include <algorithm>
#include <cstring>

#include "plain_view.hpp"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "backends/rectifier/cpu/rectify_kernel.cpp"
#define HWY_DISABLED_TARGETS (HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128)
#include <hwy/foreach_target.h>
// Must follow foreach_target.h.
#include <hwy/cache_control.h>
#include <hwy/highway.h>

#include "backends/rectifier/cpu/simd_ops-inl.hpp"

#ifndef ORU_RECTIFY_KERNEL_ONCE
#define ORU_RECTIFY_KERNEL_ONCE
namespace oru::rectifier {

/// One row of a run of tiles of one kind.
struct TileRow {
    const unsigned char* picture;
    std::size_t step;
    int lastColumn;  // where the last window that fits begins
    int lastRow;
    int siting;  // of chroma, in 1/65536 pixel
    int firstCell;
    int endCell;
    std::ptrdiff_t prefetch;  // bytes from a sample to what will be sampled some rows later
};

}  // namespace oru::rectifier
#endif

HWY_BEFORE_NAMESPACE();
namespace oru::rectifier::HWY_NAMESPACE {
#if ORU_HAS_BLOCKS

using D8 = hn::CappedTag<uint8_t, 64>;
using D16 = hn::Repartition<int16_t, D8>;
using D32 = hn::Repartition<int32_t, D8>;
using DU16 = hn::Repartition<uint16_t, D8>;
using DU32 = hn::Repartition<uint32_t, D8>;
using DU64 = hn::Repartition<uint64_t, D8>;
using V8 = hn::VFromD<D8>;
using V16 = hn::VFromD<D16>;
using V32 = hn::VFromD<D32>;

constexpr int kBlocks = static_cast<int>(hn::MaxLanes(D8())) / 16;
constexpr int kBlockPixels = 8;
constexpr int kBlockCells = kBlockPixels / MeshMap::kCell;
constexpr int kPositionBits = 12;  // of a position in its window
constexpr int kOne = 1 << kPositionBits;
constexpr int kGuard = 64;       // 1/65536 pixels; rounded increments must not lead out of the window
constexpr int kWeightSum = 127;  // of two horizontal neighbours
constexpr int kColorBits = 5;    // fraction of a level while colours are summed

// ---- one row of the mesh

/// A group's window and its first position in it, for several cells at once.
template <class D>
struct Windows {
    hn::VFromD<D> offset;
    hn::VFromD<D> x;  // of the group's first pixel, with kPositionBits of fraction
    hn::VFromD<D> y;
};

template <class D>
HWY_INLINE hn::VFromD<D> toWindow(D d, hn::VFromD<D> position, hn::VFromD<D> origin) {
    const auto half = hn::Set(d, 1 << (15 - kPositionBits));
    return hn::ShiftRight<16 - kPositionBits>(hn::Add(hn::Sub(position, hn::ShiftLeft<16>(origin)), half));
}

/// `lowX`, `lowY`: from the first pixel to the group's smallest coordinate.
template <class D>
HWY_INLINE Windows<D> placeWindows(D d, const TileRow& row, hn::VFromD<D> x, hn::VFromD<D> y, hn::VFromD<D> lowX,
                                   hn::VFromD<D> lowY) {
    const auto zero = hn::Zero(d);
    auto column = hn::ShiftRight<16>(hn::Sub(hn::Add(x, lowX), hn::Set(d, row.siting + kGuard)));
    column = hn::Min(hn::Max(column, zero), hn::Set(d, row.lastColumn));
    column = hn::And(column, hn::Set(d, ~1));
    auto line = hn::ShiftRight<16>(hn::Sub(hn::Add(y, lowY), hn::Set(d, kGuard)));
    line = hn::Min(hn::Max(line, zero), hn::Set(d, row.lastRow));
    const auto offset = hn::Add(hn::Mul(line, hn::Set(d, static_cast<int>(row.step))), hn::Add(column, column));
    return {offset, toWindow(d, x, column), toWindow(d, y, line)};
}

template <class D>
HWY_INLINE hn::VFromD<hn::RebindToUnsigned<D>> pack16(D d, hn::VFromD<D> low, hn::VFromD<D> high) {
    const hn::RebindToUnsigned<D> u;
    return hn::Or(hn::And(hn::BitCast(u, low), hn::Set(u, 0xFFFF)), hn::ShiftLeft<16>(hn::BitCast(u, high)));
}

/// Places the windows of groups of `kGroup` pixels between the nodes of a row. For a group of four, `positions` has its
/// x and y and the increments of both, 16 bits each. For groups of two, `positions` has x and y of both groups of a
/// cell, and `increments` those of the cell twice.
template <int kGroup>
HWY_INLINE void placeGroups(const TileRow& row, TileScratch& scratch) {
    const hn::ScalableTag<int32_t> d;
    const hn::RebindToUnsigned<decltype(d)> u;
    constexpr int kShift = kGroup == 4 ? 2 : 1;
    const auto zero = hn::Zero(d);
    const auto half = hn::Set(d, 1 << (15 - kPositionBits));
    for (int cell = row.firstCell; cell < row.endCell; cell += static_cast<int>(hn::Lanes(d))) {
        const auto x = hn::LoadU(d, &scratch.x[cell]);
        const auto y = hn::LoadU(d, &scratch.y[cell]);
        const auto stepX = hn::ShiftRight<2>(hn::Sub(hn::LoadU(d, &scratch.x[cell + 1]), x));
        const auto stepY = hn::ShiftRight<2>(hn::Sub(hn::LoadU(d, &scratch.y[cell + 1]), y));
        const auto lowX = hn::Min(zero, hn::Sub(hn::ShiftLeft<kShift>(stepX), stepX));
        const auto lowY = hn::Min(zero, hn::Sub(hn::ShiftLeft<kShift>(stepY), stepY));
        const auto increment = pack16(d, hn::ShiftRight<16 - kPositionBits>(hn::Add(stepX, half)),
                                      hn::ShiftRight<16 - kPositionBits>(hn::Add(stepY, half)));
        const auto first = placeWindows(d, row, x, y, lowX, lowY);
        const auto firstPosition = pack16(d, first.x, first.y);
        if constexpr (kGroup == 4) {
            hn::StoreU(first.offset, d, &scratch.offsets[cell]);
            hn::StoreInterleaved2(firstPosition, increment, u, &scratch.positions[2 * cell]);
        } else {
            const auto second =
                placeWindows(d, row, hn::Add(x, hn::Add(stepX, stepX)), hn::Add(y, hn::Add(stepY, stepY)), lowX, lowY);
            hn::StoreInterleaved2(first.offset, second.offset, d, &scratch.offsets[2 * cell]);
            hn::StoreInterleaved2(firstPosition, pack16(d, second.x, second.y), u, &scratch.positions[2 * cell]);
            hn::StoreInterleaved2(increment, increment, u, &scratch.increments[2 * cell]);
        }
    }
}

// ---- the pixels of kBlocks cells

HWY_INLINE V8 bytePattern(const uint8_t (&pattern)[16]) {
    return hn::LoadDup128(D8(), pattern);
}

HWY_INLINE V16 lanePattern(const int16_t (&pattern)[8]) {
    return hn::LoadDup128(D16(), pattern);
}

struct Positions {
    V16 x;
    V16 y;
};

/// Where the pixels of each block's two cells from `cell` on lie in their windows.
template <int kGroup>
HWY_INLINE Positions pixelPositions(const TileScratch& scratch, int cell) {
    HWY_ALIGN static constexpr uint8_t kFour[4][16] = {{0, 1, 0, 1, 0, 1, 0, 1, 8, 9, 8, 9, 8, 9, 8, 9},
                                                       {2, 3, 2, 3, 2, 3, 2, 3, 10, 11, 10, 11, 10, 11, 10, 11},
                                                       {4, 5, 4, 5, 4, 5, 4, 5, 12, 13, 12, 13, 12, 13, 12, 13},
                                                       {6, 7, 6, 7, 6, 7, 6, 7, 14, 15, 14, 15, 14, 15, 14, 15}};
    HWY_ALIGN static constexpr uint8_t kTwo[2][16] = {{0, 1, 0, 1, 4, 5, 4, 5, 8, 9, 8, 9, 12, 13, 12, 13},
                                                      {2, 3, 2, 3, 6, 7, 6, 7, 10, 11, 10, 11, 14, 15, 14, 15}};
    HWY_ALIGN static constexpr int16_t kPixelOfFour[8] = {0, 1, 2, 3, 0, 1, 2, 3};
    HWY_ALIGN static constexpr int16_t kPixelOfTwo[8] = {0, 1, 0, 1, 0, 1, 0, 1};
    const DU32 d32;
    const auto spread = [](auto words, const uint8_t(&pattern)[16]) HWY_ATTR {
        return hn::BitCast(D16(), hn::TableLookupBytes(hn::BitCast(D8(), words), bytePattern(pattern)));
    };
    const auto words = hn::LoadU(d32, &scratch.positions[2 * cell]);
    if constexpr (kGroup == 4) {
        const auto pixel = lanePattern(kPixelOfFour);
        return {hn::Add(spread(words, kFour[0]), hn::Mul(spread(words, kFour[2]), pixel)),
                hn::Add(spread(words, kFour[1]), hn::Mul(spread(words, kFour[3]), pixel))};
    } else {
        const auto increments = hn::LoadU(d32, &scratch.increments[2 * cell]);
        const auto pixel = lanePattern(kPixelOfTwo);
        return {hn::Add(spread(words, kTwo[0]), hn::Mul(spread(increments, kFour[0]), pixel)),
                hn::Add(spread(words, kTwo[1]), hn::Mul(spread(increments, kFour[1]), pixel))};
    }
}

HWY_INLINE V16 clamped(V16 value, int16_t last) {
    const D16 d;
    return hn::Min(hn::Max(value, hn::Zero(d)), hn::Set(d, last));
}

/// Weights of the left and right neighbour, as two bytes.
HWY_INLINE V16 neighbourWeights(V16 position) {
    const D16 d;
    const auto part = hn::And(position, hn::Set(d, kOne - 1));
    const auto right = hn::MulFixedPoint15(part, hn::Set(d, kWeightSum * (32768 / kOne)));
    return hn::Add(hn::Sub(hn::ShiftLeft<8>(right), right), hn::Set(d, kWeightSum));
}

/// Weights of the three rows of a window, in 1/32768; they add up to 32767.
struct RowWeights {
    V16 upper;
    V16 middle;
    V16 lower;

    explicit HWY_INLINE RowWeights(V16 position) {
        const D16 d;
        const DU16 u;
        const auto down = hn::BitCast(u, hn::ShiftLeft<15 - kPositionBits>(clamped(position, 2 * kOne - 1)));
        const auto above = hn::SaturatedSub(hn::Set(u, 32767), down);
        const auto below = hn::SaturatedSub(down, hn::Set(u, 32768));
        upper = hn::BitCast(d, above);
        lower = hn::BitCast(d, below);
        middle = hn::BitCast(d, hn::Sub(hn::Sub(hn::Set(u, 32767), above), below));
    }
};

HWY_INLINE V16 weighRows(V16 upper, V16 middle, V16 lower, const RowWeights& weights) {
    return hn::Add(hn::Add(hn::MulFixedPoint15(upper, weights.upper), hn::MulFixedPoint15(middle, weights.middle)),
                   hn::MulFixedPoint15(lower, weights.lower));
}

HWY_INLINE V16 lumaIndex(V16 x) {
    const D16 d;
    return hn::Add(hn::Mul(hn::ShiftRight<kPositionBits>(x), hn::Set(d, 0x0202)), hn::Set(d, 0x0200));
}

/// Without the offset of U or V.
HWY_INLINE V16 chromaIndex(V16 x) {
    const D16 d;
    return hn::Mul(hn::ShiftRight<kPositionBits>(x), hn::Set(d, 0x0404));
}

/// Group `group` of each cell: one window row of 16 bytes in each block.
template <int kGroup>
HWY_INLINE V8 windowRow(const unsigned char* picture, const int32_t* offsets, int group) {
    const hn::CappedTag<uint8_t, 16> d;
    const auto load = [&](int block)
                          HWY_ATTR { return hn::LoadU(d, picture + offsets[block * (kBlockPixels / kGroup) + group]); };
    if constexpr (kBlocks == 1) {
        return load(0);
    } else if constexpr (kBlocks == 2) {
        return hn::Combine(D8(), load(1), load(0));
    } else {
        const hn::Half<D8> half;
        return hn::Combine(D8(), hn::Combine(half, load(3), load(2)), hn::Combine(half, load(1), load(0)));
    }
}

HWY_INLINE V8 shuffled(V8 pixels, V16 index) {
    return hn::TableLookupBytesOr0(pixels, hn::BitCast(D8(), index));
}

/// Weighted luma of eight pixels a cell on one row of the windows.
template <int kGroup>
HWY_INLINE V16 lumaOfRow(const unsigned char* picture, const int32_t* offsets, const V16* index, V16 weights) {
    auto pairs = shuffled(windowRow<kGroup>(picture, offsets, 0), index[0]);
    for (int group = 1; group < kBlockPixels / kGroup; ++group) {
        pairs = hn::Or(pairs, shuffled(windowRow<kGroup>(picture, offsets, group), index[group]));
    }
    return mulPairs(D16(), pairs, weights);
}

/// The luma index with every lane switched off that is not of the group.
template <int kGroup>
HWY_INLINE void lumaIndexes(V16 index, V16* indexes) {
    constexpr int16_t kOff = static_cast<int16_t>(0x8080);
    HWY_ALIGN static constexpr int16_t kFour[2][8] = {{0, 0, 0, 0, kOff, kOff, kOff, kOff},
                                                      {kOff, kOff, kOff, kOff, 0, 0, 0, 0}};
    HWY_ALIGN static constexpr int16_t kTwo[4][8] = {{0, 0, kOff, kOff, kOff, kOff, kOff, kOff},
                                                     {kOff, kOff, 0, 0, kOff, kOff, kOff, kOff},
                                                     {kOff, kOff, kOff, kOff, 0, 0, kOff, kOff},
                                                     {kOff, kOff, kOff, kOff, kOff, kOff, 0, 0}};
    for (int group = 0; group < kBlockPixels / kGroup; ++group) {
        indexes[group] = hn::Or(index, lanePattern(kGroup == 4 ? kFour[group & 1] : kTwo[group]));
    }
}

template <int kGroup>
HWY_INLINE V16 grayOfCells(const TileRow& row, const TileScratch& scratch, int cell) {
    const D16 d;
    const Positions at = pixelPositions<kGroup>(scratch, cell);
    const auto x = clamped(at.x, 7 * kOne);
    const auto weights = neighbourWeights(x);
    const RowWeights rows(at.y);
    V16 index[4];
    lumaIndexes<kGroup>(lumaIndex(x), index);
    const int32_t* offsets = &scratch.offsets[MeshMap::kCell / kGroup * cell];
    const auto sum = weighRows(lumaOfRow<kGroup>(row.picture, offsets, index, weights),
                               lumaOfRow<kGroup>(row.picture + row.step, offsets, index, weights),
                               lumaOfRow<kGroup>(row.picture + 2 * row.step, offsets, index, weights), rows);
    return hn::MulFixedPoint15(sum, hn::Set(d, 32768 / kWeightSum));
}

/// Sums of eight pixels a cell, kWeightSum times the sample.
struct YuvSums {
    V16 y;
    V16 u;
    V16 v;
};

HWY_INLINE V16 lower64(V16 a, V16 b) {
    const DU64 d;
    return hn::BitCast(D16(), hn::InterleaveLower(d, hn::BitCast(d, a), hn::BitCast(d, b)));
}

HWY_INLINE V16 upper64(V16 a, V16 b) {
    const DU64 d;
    return hn::BitCast(D16(), hn::InterleaveUpper(d, hn::BitCast(d, a), hn::BitCast(d, b)));
}

HWY_INLINE V16 lower32(V16 a, V16 b) {
    const DU32 d;
    return hn::BitCast(D16(), hn::InterleaveLower(d, hn::BitCast(d, a), hn::BitCast(d, b)));
}

HWY_INLINE V16 upper32(V16 a, V16 b) {
    const DU32 d;
    return hn::BitCast(D16(), hn::InterleaveUpper(d, hn::BitCast(d, a), hn::BitCast(d, b)));
}

struct PixelWeights {
    V16 luma;
    V16 chroma;
    RowWeights rows;
};

/// Groups of four: luma of both groups in one vector, chroma of a group as four U and four V.
HWY_INLINE YuvSums sumsOfFour(const TileRow& row, const int32_t* offsets, V16 luma, V16 chroma,
                              const PixelWeights& weights) {
    HWY_ALIGN static constexpr int16_t kUv[8] = {0x0501, 0x0501, 0x0501, 0x0501, 0x0703, 0x0703, 0x0703, 0x0703};
    V16 lumaGroups[2];
    lumaIndexes<4>(luma, lumaGroups);
    const auto uv = lanePattern(kUv);
    const auto firstIndex = hn::Add(lower64(chroma, chroma), uv);
    const auto secondIndex = hn::Add(upper64(chroma, chroma), uv);
    const auto firstWeights = lower64(weights.chroma, weights.chroma);
    const auto secondWeights = upper64(weights.chroma, weights.chroma);
    V16 y[3];
    V16 u[3];
    V16 v[3];
    for (int line = 0; line < 3; ++line) {
        const unsigned char* picture = row.picture + static_cast<std::size_t>(line) * row.step;
        const auto first = windowRow<4>(picture, offsets, 0);
        const auto second = windowRow<4>(picture, offsets, 1);
        y[line] =
            mulPairs(D16(), hn::Or(shuffled(first, lumaGroups[0]), shuffled(second, lumaGroups[1])), weights.luma);
        const auto firstUv = mulPairs(D16(), shuffled(first, firstIndex), firstWeights);
        const auto secondUv = mulPairs(D16(), shuffled(second, secondIndex), secondWeights);
        u[line] = lower64(firstUv, secondUv);
        v[line] = upper64(firstUv, secondUv);
    }
    return {weighRows(y[0], y[1], y[2], weights.rows), weighRows(u[0], u[1], u[2], weights.rows),
            weighRows(v[0], v[1], v[2], weights.rows)};
}

/// Four vectors of a pair for each group, made of vectors with the pairs of all groups: the luma pair, then chroma
/// pairs for U and twice for V.
HWY_INLINE void byGroups(V16 luma, V16 u, V16 v, V16* groups) {
    const auto lowLuma = lower32(luma, u);
    const auto lowChroma = lower32(v, v);
    const auto highLuma = upper32(luma, u);
    const auto highChroma = upper32(v, v);
    groups[0] = lower64(lowLuma, lowChroma);
    groups[1] = upper64(lowLuma, lowChroma);
    groups[2] = lower64(highLuma, highChroma);
    groups[3] = upper64(highLuma, highChroma);
}

template <int kWord>
HWY_INLINE V16 spreadWord(V16 value) {
    HWY_ALIGN static constexpr uint8_t kPattern[16] = {
        4 * kWord, 4 * kWord + 1, 4 * kWord + 2, 4 * kWord + 3, 4 * kWord, 4 * kWord + 1, 4 * kWord + 2, 4 * kWord + 3,
        4 * kWord, 4 * kWord + 1, 4 * kWord + 2, 4 * kWord + 3, 4 * kWord, 4 * kWord + 1, 4 * kWord + 2, 4 * kWord + 3};
    return hn::BitCast(D16(), hn::TableLookupBytes(hn::BitCast(D8(), value), bytePattern(kPattern)));
}

template <int kIndex>
HWY_INLINE V16 sumOfPair(const TileRow& row, const int32_t* offsets, V16 index, V16 neighbours,
                         const RowWeights& rows) {
    const auto line = [&](std::size_t number) HWY_ATTR {
        const auto pixels = windowRow<2>(row.picture + number * row.step, offsets, kIndex);
        return mulPairs(D16(), shuffled(pixels, index), neighbours);
    };
    const auto upper = hn::MulFixedPoint15(line(0), spreadWord<kIndex>(rows.upper));
    const auto middle = hn::MulFixedPoint15(line(1), spreadWord<kIndex>(rows.middle));
    return hn::Add(hn::Add(upper, middle), hn::MulFixedPoint15(line(2), spreadWord<kIndex>(rows.lower)));
}

/// Groups of two: all samples of a group in one vector.
HWY_INLINE YuvSums sumsOfTwo(const TileRow& row, const int32_t* offsets, V16 luma, V16 chroma,
                             const PixelWeights& weights) {
    const D16 d;
    V16 index[4];
    V16 neighbours[4];
    byGroups(luma, hn::Add(chroma, hn::Set(d, 0x0501)), hn::Add(chroma, hn::Set(d, 0x0703)), index);
    byGroups(weights.luma, weights.chroma, weights.chroma, neighbours);
    const auto g0 = sumOfPair<0>(row, offsets, index[0], neighbours[0], weights.rows);
    const auto g1 = sumOfPair<1>(row, offsets, index[1], neighbours[1], weights.rows);
    const auto g2 = sumOfPair<2>(row, offsets, index[2], neighbours[2], weights.rows);
    const auto g3 = sumOfPair<3>(row, offsets, index[3], neighbours[3], weights.rows);
    const auto low = lower32(g0, g1);
    const auto high = lower32(g2, g3);
    return {lower64(low, high), upper64(low, high), lower64(upper32(g0, g1), upper32(g2, g3))};
}

template <int kGroup>
HWY_INLINE YuvSums yuvOfCells(const TileRow& row, const TileScratch& scratch, int cell) {
    const D16 d;
    const Positions at = pixelPositions<kGroup>(scratch, cell);
    const auto x = clamped(at.x, 7 * kOne);
    const auto siting = hn::Set(d, static_cast<int16_t>(row.siting >> (16 - kPositionBits)));
    const auto chromaX = clamped(hn::ShiftRight<1>(hn::Sub(at.x, siting)), 3 * kOne);
    const PixelWeights weights{neighbourWeights(x), neighbourWeights(chromaX), RowWeights(at.y)};
    const int32_t* offsets = &scratch.offsets[MeshMap::kCell / kGroup * cell];
    if constexpr (kGroup == 4) {
        return sumsOfFour(row, offsets, lumaIndex(x), chromaIndex(chromaX), weights);
    } else {
        return sumsOfTwo(row, offsets, lumaIndex(x), chromaIndex(chromaX), weights);
    }
}

/// A BT.601 factor for sums of kWeightSum, to levels with kColorBits of fraction.
constexpr int16_t colorFactor(double factor) {
    return static_cast<int16_t>(factor * (1 << kColorBits) / kWeightSum * 32768 * (32768.0 / 32767) + 0.5);
}

/// What is added to a colour: the offsets of its components, and half a level for rounding.
constexpr int16_t colorBias(double lumaFactor, double chromaFactors) {
    const double bias = -(16 * lumaFactor + 128 * chromaFactors) * (1 << kColorBits) + (1 << (kColorBits - 1));
    return static_cast<int16_t>(bias < 0 ? bias - 0.5 : bias + 0.5);
}

constexpr double kLuma = 255.0 / 219;
constexpr double kBlueOfU = 1.772 * 255 / 224;
constexpr double kGreenOfU = -0.344136 * 255 / 224;
constexpr double kGreenOfV = -0.714136 * 255 / 224;
constexpr double kRedOfV = 1.402 * 255 / 224;

HWY_INLINE void storeBgra(const YuvSums& sums, unsigned char* out) {
    const D16 d;
    const D8 d8;
    const auto luma = hn::MulFixedPoint15(sums.y, hn::Set(d, colorFactor(kLuma)));
    const auto scaled = [&](V16 sum, int16_t factor) HWY_ATTR { return hn::MulFixedPoint15(sum, hn::Set(d, factor)); };
    const auto blue = hn::Add(scaled(sums.u, colorFactor(kBlueOfU)), hn::Set(d, colorBias(kLuma, kBlueOfU)));
    const auto green =
        hn::Sub(hn::Set(d, colorBias(kLuma, kGreenOfU + kGreenOfV)),
                hn::Add(scaled(sums.u, colorFactor(-kGreenOfU)), scaled(sums.v, colorFactor(-kGreenOfV))));
    const auto red = hn::Add(scaled(sums.v, colorFactor(kRedOfV)), hn::Set(d, colorBias(kLuma, kRedOfV)));
    const auto level = [&](V16 color) HWY_ATTR { return hn::ShiftRight<kColorBits>(hn::Add(luma, color)); };
    V8 first;
    V8 second;
    interleaveBgra(d, level(blue), level(green), level(red), first, second);
    storeByTurns(d8, first, second, out,
                 [](auto tag, auto pixels, unsigned char* to) HWY_ATTR { hn::StoreU(pixels, tag, to); });
}

template <int kGroup, bool kGray>
HWY_INLINE void drawCells(const TileRow& row, const TileScratch& scratch, int firstCell, int endCell,
                          unsigned char* out) {
    for (int cell = firstCell; cell < endCell; cell += kBlockCells * kBlocks) {
        for (int ahead = 0; ahead < kBlockCells * kBlocks; ahead += 4) {
            hwy::Prefetch(row.picture + scratch.offsets[MeshMap::kCell / kGroup * (cell + ahead)] + row.prefetch);
        }
        if constexpr (kGray) {
            const hn::Rebind<uint8_t, D16> bytes;
            hn::StoreU(hn::DemoteTo(bytes, grayOfCells<kGroup>(row, scratch, cell)), bytes, out);
            out += kBlockPixels * kBlocks;
        } else {
            storeBgra(yuvOfCells<kGroup>(row, scratch, cell), out);
            out += kBlockPixels * kBlocks * 4;
        }
    }
}

template <int kGroup, bool kGray>
void drawTiles(const TileRow& row, int width, TileScratch& scratch, unsigned char* out) {
    placeGroups<kGroup>(row, scratch);
    constexpr int kPixelBytes = kGray ? 1 : 4;
    const int cellsInside = std::min(row.endCell, width / MeshMap::kTileWidth * (MeshMap::kTileWidth / MeshMap::kCell));
    drawCells<kGroup, kGray>(row, scratch, row.firstCell, cellsInside, out);
    if (cellsInside < row.endCell) {
        HWY_ALIGN unsigned char tile[MeshMap::kTileWidth * kPixelBytes];
        drawCells<kGroup, kGray>(row, scratch, cellsInside, row.endCell, tile);
        std::memcpy(out + (cellsInside - row.firstCell) * MeshMap::kCell * kPixelBytes, tile,
                    static_cast<std::size_t>((width - cellsInside * MeshMap::kCell) * kPixelBytes));
    }
}

void drawRun(const TileRow& row, TileKind kind, bool gray, int width, TileScratch& scratch, unsigned char* out) {
    if (kind == TileKind::GroupsOfFour) {
        gray ? drawTiles<4, true>(row, width, scratch, out) : drawTiles<4, false>(row, width, scratch, out);
    } else {
        gray ? drawTiles<2, true>(row, width, scratch, out) : drawTiles<2, false>(row, width, scratch, out);
    }
}

void interpolateNodes(const std::int32_t* upper, const std::int32_t* lower, int line, int count, std::int32_t* out) {
    const hn::ScalableTag<int32_t> d;
    const auto part = hn::Set(d, line);
    for (int i = 0; i < count; i += static_cast<int>(hn::Lanes(d))) {
        const auto from = hn::LoadU(d, upper + i);
        const auto slope = hn::ShiftRight<2>(hn::Sub(hn::LoadU(d, lower + i), from));
        hn::StoreU(hn::Add(from, hn::Mul(slope, part)), d, out + i);
    }
}

bool hasTiles() {
    return true;
}

#else  // every tile is Plain then

void drawRun(const TileRow&, TileKind, bool, int, TileScratch&, unsigned char*) {}
void interpolateNodes(const std::int32_t*, const std::int32_t*, int, int, std::int32_t*) {}
bool hasTiles() {
    return false;
}

#endif
}  // namespace oru::rectifier::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace oru::rectifier {

HWY_EXPORT(drawRun);
HWY_EXPORT(interpolateNodes);
HWY_EXPORT(hasTiles);

namespace {

constexpr int kPrefetchRows = 8;  // fewer come too late; from 6 to 14 it makes no difference

void drawPlainTiles(const MeshMap& mesh, const TileRun& run, const YuyvFrame& frame, const ViewTarget& target,
                    int row) {
    for (int tile = run.first; tile < run.first + run.count; ++tile) {
        const int first = tile * MeshMap::kTileWidth;
        const auto count = static_cast<std::size_t>(std::min(MeshMap::kTileWidth, target.width - first));
        const SourcePosition* positions =
            mesh.plainPositions(row / MeshMap::kTileHeight, tile, row % MeshMap::kTileHeight);
        unsigned char* out = target.row(row) + static_cast<std::size_t>(first) * target.pixelBytes();
        if (target.gray) {
            drawGray(frame, positions, count, out);
        } else {
            drawBgra(frame, positions, count, out);
        }
    }
}

TileRow tileRowOf(const TileRun& run, const YuyvFrame& frame, bool upwards) {
    const int cells = MeshMap::kTileWidth / MeshMap::kCell;
    const auto ahead = static_cast<std::ptrdiff_t>(frame.step) * kPrefetchRows;
    return {frame.pixels,
            frame.step,
            frame.chromaColumns() * 2 - 8,
            frame.height - 3,
            static_cast<int>(frame.chroma_siting * 65536),
            run.first * cells,
            (run.first + run.count) * cells,
            upwards ? -ahead : ahead};
}

}  // namespace

bool hasTileKernel() {
    return HWY_DYNAMIC_DISPATCH(hasTiles)();
}

TileScratch::TileScratch(const MeshMap& mesh) {
    const auto cells = static_cast<std::size_t>(mesh.nodesPerRow() + MeshMap::kSpareNodes);
    x.resize(cells);
    y.resize(cells);
    offsets.resize(2 * cells);
    positions.resize(2 * cells);
    increments.resize(2 * cells);
}

void drawRectifiedRows(const MeshMap& mesh, const YuyvFrame& frame, const ViewTarget& target, int firstRow, int endRow,
                       TileScratch& scratch) {
    const auto interpolate = HWY_DYNAMIC_DISPATCH(interpolateNodes);
    const auto draw = HWY_DYNAMIC_DISPATCH(drawRun);
    for (int row = firstRow; row < endRow; ++row) {
        const int node = row / MeshMap::kCell;
        const int line = row % MeshMap::kCell;
        const bool upwards = mesh.nodesY(node + 1)[0] < mesh.nodesY(node)[0];
        interpolate(mesh.nodesX(node), mesh.nodesX(node + 1), line, mesh.nodesPerRow(), scratch.x.data());
        interpolate(mesh.nodesY(node), mesh.nodesY(node + 1), line, mesh.nodesPerRow(), scratch.y.data());
        for (const TileRun& run : mesh.runs(row / MeshMap::kTileHeight, target.gray)) {
            if (run.kind == TileKind::Plain) {
                drawPlainTiles(mesh, run, frame, target, row);
                continue;
            }
            unsigned char* out =
                target.row(row) + static_cast<std::size_t>(run.first * MeshMap::kTileWidth) * target.pixelBytes();
            draw(tileRowOf(run, frame, upwards), run.kind, target.gray, target.width, scratch, out);
        }
    }
}

}  // namespace oru::rectifier
#endif
