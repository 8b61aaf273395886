// How groups of neighbouring pixels find their samples, once for each instruction set: included again after every
// change of HWY_TARGET, hence no #pragma once.
//
// A group of four (or, where the image is steeper or shrinks, two) pixels takes its samples from one window of eight
// columns and three rows. A vector block of 16 bytes has a window row and the eight pixels of two cells by turns. Byte
// shuffles bring each pixel's left and right sample together, multiplication with byte weights mixes them, and three
// row weights mix the rows. Nothing branches on a pixel.
#if defined(ORU_RECTIFIER_TILE_WINDOWS_INL_HPP) == defined(HWY_TARGET_TOGGLE)
#ifdef ORU_RECTIFIER_TILE_WINDOWS_INL_HPP
#undef ORU_RECTIFIER_TILE_WINDOWS_INL_HPP
#else
#define ORU_RECTIFIER_TILE_WINDOWS_INL_HPP
#endif

#include <hwy/highway.h>

#include "backends/rectifier/cpu/TileRow.hpp"
#include "backends/rectifier/cpu/rectify_kernel.hpp"
#include "backends/rectifier/cpu/simd_ops-inl.hpp"

HWY_BEFORE_NAMESPACE();
namespace oru::rectifier::HWY_NAMESPACE {
#if ORU_HAS_BLOCKS

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
    column = hn::Min(hn::Max(column, zero), hn::Set(d, row.last_column));
    column = hn::And(column, hn::Set(d, ~1));
    auto line = hn::ShiftRight<16>(hn::Sub(hn::Add(y, lowY), hn::Set(d, kGuard)));
    line = hn::Min(hn::Max(line, zero), hn::Set(d, row.last_row));
    const auto offset = hn::Add(hn::Mul(line, hn::Set(d, static_cast<int>(row.step))), hn::Add(column, column));
    return {offset, toWindow(d, x, column), toWindow(d, y, line)};
}

template <class D>
HWY_INLINE hn::VFromD<hn::RebindToUnsigned<D>> pack16(D, hn::VFromD<D> low, hn::VFromD<D> high) {
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
    for (int cell = row.first_cell; cell < row.end_cell; cell += static_cast<int>(hn::Lanes(d))) {
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
HWY_INLINE V8 windowRow(const unsigned char* image, const int32_t* offsets, int group) {
    const hn::CappedTag<uint8_t, 16> d;
    const auto load = [&](int block)
                          HWY_ATTR { return hn::LoadU(d, image + offsets[block * (kBlockPixels / kGroup) + group]); };
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
HWY_INLINE V16 lumaOfRow(const unsigned char* image, const int32_t* offsets, const V16* index, V16 weights) {
    auto pairs = shuffled(windowRow<kGroup>(image, offsets, 0), index[0]);
    for (int group = 1; group < kBlockPixels / kGroup; ++group) {
        pairs = hn::Or(pairs, shuffled(windowRow<kGroup>(image, offsets, group), index[group]));
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

#endif
}  // namespace oru::rectifier::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
