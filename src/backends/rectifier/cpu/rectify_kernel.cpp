#include "backends/rectifier/cpu/rectify_kernel.hpp"

#include <algorithm>
#include <cstring>

#include "backends/rectifier/reference/bt601.hpp"
#include "backends/rectifier/reference/reference_view.hpp"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "backends/rectifier/cpu/rectify_kernel.cpp"
#define HWY_DISABLED_TARGETS (HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128)
#include <hwy/foreach_target.h>
// Must follow foreach_target.h.
#include <hwy/cache_control.h>
#include <hwy/highway.h>

#include "backends/rectifier/cpu/tile_windows-inl.hpp"

HWY_BEFORE_NAMESPACE();
namespace oru::rectifier::HWY_NAMESPACE {
namespace {
#if ORU_HAS_BLOCKS

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
    const auto sum = weighRows(lumaOfRow<kGroup>(row.image, offsets, index, weights),
                               lumaOfRow<kGroup>(row.image + row.step, offsets, index, weights),
                               lumaOfRow<kGroup>(row.image + 2 * row.step, offsets, index, weights), rows);
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
        const unsigned char* image = row.image + static_cast<std::size_t>(line) * row.step;
        const auto first = windowRow<4>(image, offsets, 0);
        const auto second = windowRow<4>(image, offsets, 1);
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
        const auto pixels = windowRow<2>(row.image + number * row.step, offsets, kIndex);
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
            hwy::Prefetch(row.image + scratch.offsets[MeshMap::kCell / kGroup * (cell + ahead)] + row.prefetch);
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
    const int cellsInside =
        std::min(row.end_cell, width / MeshMap::kTileWidth * (MeshMap::kTileWidth / MeshMap::kCell));
    drawCells<kGroup, kGray>(row, scratch, row.first_cell, cellsInside, out);
    if (cellsInside < row.end_cell) {
        HWY_ALIGN unsigned char tile[MeshMap::kTileWidth * kPixelBytes];
        drawCells<kGroup, kGray>(row, scratch, cellsInside, row.end_cell, tile);
        std::memcpy(out + (cellsInside - row.first_cell) * MeshMap::kCell * kPixelBytes, tile,
                    static_cast<std::size_t>((width - cellsInside * MeshMap::kCell) * kPixelBytes));
    }
}

void drawRun(const TileRow& row, TileKind kind, bool gray, int width, TileScratch& scratch, unsigned char* out) {
    if (kind == TileKind::GROUPS_OF_FOUR) {
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
}  // namespace
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
            if (run.kind == TileKind::EXACT) {
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
