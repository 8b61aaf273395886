#include "backends/rectifier/geometry/mesh_map.hpp"

#include <algorithm>
#include <cmath>

namespace oru::rectifier {
namespace {

constexpr double kOnePixel = 65536;
constexpr double kFarthest = 20000;    // pixels; keeps a wild position within 32 bits
constexpr double kBorderGuard = 0.03;  // pixels, more than a node's and an interpolated position's error
constexpr int kWindowWidth = 8;
constexpr int kWindowHeight = 3;
constexpr double kAlignment = 2.01;  // a window begins at an even column, up to this far before its first sample

std::int32_t toFixed(double position) {
    const double bounded = position > -kFarthest ? std::min(position, kFarthest) : -kFarthest;
    return static_cast<std::int32_t>(std::lround(bounded * kOnePixel));
}

/// The four corners of a cell, in pixels.
struct Cell {
    Point top_left;
    Point top_right;
    Point bottom_left;
    Point bottom_right;

    [[nodiscard]] Point between(double right, double down) const {
        const auto mix = [](double a, double b, double part) { return a + (b - a) * part; };
        return {mix(mix(top_left.x, top_right.x, right), mix(bottom_left.x, bottom_right.x, right), down),
                mix(mix(top_left.y, top_right.y, right), mix(bottom_left.y, bottom_right.y, right), down)};
    }
};

bool isClose(const ViewMap& map, const Cell& cell, int u, int v) {
    for (const auto& [right, down] : {std::pair{0.5, 0.5}, {0.5, 0.0}, {0.0, 0.5}}) {
        const Point exact = map.at(u + right * MeshMap::kCell, v + down * MeshMap::kCell);
        const Point mesh = cell.between(right, down);
        if (!(std::hypot(exact.x - mesh.x, exact.y - mesh.y) <= MeshMap::kLargestError)) {
            return false;
        }
    }
    return true;
}

/// Whether the cell's pixels, the last of them at (`right`, `down`), see the image.
bool isInside(const Cell& cell, double right, double down, Size image) {
    for (const Point& pixel :
         {cell.top_left, cell.between(right, 0), cell.between(0, down), cell.between(right, down)}) {
        const bool insideX = pixel.x >= -0.5 + kBorderGuard && pixel.x <= image.width - 0.5 - kBorderGuard;
        const bool insideY = pixel.y >= -0.5 + kBorderGuard && pixel.y <= image.height - 0.5 - kBorderGuard;
        if (!insideX || !insideY) {
            return false;
        }
    }
    return true;
}

/// Whether groups of pixels along the cell's rows fit their windows.
MeshMap::Kinds fittingKinds(const Cell& cell, double siting) {
    const auto step = [&](double Point::*axis) {
        return std::max(std::abs(cell.top_right.*axis - cell.top_left.*axis),
                        std::abs(cell.bottom_right.*axis - cell.bottom_left.*axis)) /
               MeshMap::kCell;
    };
    const double across = step(&Point::x);
    const double down = step(&Point::y);
    const double lastColumn = kWindowWidth - 1;
    const auto fits = [&](int pixels, double columns) {
        return kAlignment + siting + (pixels - 1) * across <= columns && (pixels - 1) * down <= 0.99;
    };
    const auto widest = [&](double columns) {
        return fits(4, columns) ? TileKind::GROUPS_OF_FOUR
                                : (fits(2, columns) ? TileKind::GROUPS_OF_TWO : TileKind::EXACT);
    };
    // The last chroma sample of a window lies one column before the last luma sample.
    const TileKind color = widest(lastColumn - 1 + siting);
    return {color, color == TileKind::EXACT ? color : widest(lastColumn)};
}

}  // namespace

MeshMap::MeshMap(const ViewMap& map, Size view, float chromaSiting, bool fast)
    : tileColumns((view.width + kTileWidth - 1) / kTileWidth),
      tileRows((view.height + kTileHeight - 1) / kTileHeight),
      nodeColumns(tileColumns * (kTileWidth / kCell) + 1),
      nodeRows(tileRows * (kTileHeight / kCell) + 1),
      colorRuns(static_cast<std::size_t>(tileRows)),
      grayRuns(static_cast<std::size_t>(tileRows)) {
    placeNodes(map);
    fast = fast && view.width >= kWindowWidth && view.height >= kWindowHeight;
    std::vector<TileKind> color(static_cast<std::size_t>(tileColumns));
    std::vector<TileKind> gray(color.size());
    for (int row = 0; row < tileRows; ++row) {
        for (int tile = 0; tile < tileColumns; ++tile) {
            const Kinds kinds = fast ? kindsOf(map, view, row, tile, chromaSiting) : Kinds{};
            color[static_cast<std::size_t>(tile)] = kinds.color;
            gray[static_cast<std::size_t>(tile)] = kinds.gray;
            plainIndex.push_back(-1);
            if (kinds.color == TileKind::EXACT) {
                keepPlain(map, row, tile);
            }
        }
        appendRuns(color, colorRuns[static_cast<std::size_t>(row)]);
        appendRuns(gray, grayRuns[static_cast<std::size_t>(row)]);
    }
}

MeshMap::Kinds MeshMap::kindsOf(const ViewMap& map, Size view, int tileRow, int tile, double chromaSiting) const {
    const auto node = [&](int column, int row) {
        const std::size_t index = nodeIndex(row) + static_cast<std::size_t>(column);
        return Point{nodeX[index] / kOnePixel, nodeY[index] / kOnePixel};
    };
    Kinds kinds{TileKind::GROUPS_OF_FOUR, TileKind::GROUPS_OF_FOUR};
    const int endU = std::min(view.width, (tile + 1) * kTileWidth);
    const int endV = std::min(view.height, (tileRow + 1) * kTileHeight);
    for (int v = tileRow * kTileHeight; v < endV; v += kCell) {
        for (int u = tile * kTileWidth; u < endU; u += kCell) {
            const int column = u / kCell;
            const int row = v / kCell;
            const Cell cell{node(column, row), node(column + 1, row), node(column, row + 1), node(column + 1, row + 1)};
            const double right = std::min(kCell, endU - u) - 1;
            const double down = std::min(kCell, endV - v) - 1;
            if (!isInside(cell, right / kCell, down / kCell, view) || !isClose(map, cell, u, v)) {
                return {};
            }
            const Kinds fitting = fittingKinds(cell, chromaSiting);
            kinds = {std::min(kinds.color, fitting.color), std::min(kinds.gray, fitting.gray)};
        }
    }
    return kinds;
}

const SourcePosition* MeshMap::plainPositions(int tileRow, int tile, int line) const {
    const auto index = static_cast<std::size_t>(plainIndex[static_cast<std::size_t>(tileRow * tileColumns + tile)]);
    return &plain[(index * kTileHeight + static_cast<std::size_t>(line)) * kTileWidth];
}

void MeshMap::placeNodes(const ViewMap& map) {
    nodeX.resize(nodeIndex(nodeRows));
    nodeY.resize(nodeX.size());
    for (int row = 0; row < nodeRows; ++row) {
        for (int column = 0; column < nodeColumns; ++column) {
            const Point position = map.at(column * kCell, row * kCell);
            nodeX[nodeIndex(row) + static_cast<std::size_t>(column)] = toFixed(position.x);
            nodeY[nodeIndex(row) + static_cast<std::size_t>(column)] = toFixed(position.y);
        }
    }
}

void MeshMap::keepPlain(const ViewMap& map, int tileRow, int tile) {
    plainIndex.back() = static_cast<std::int32_t>(plain.size() / (kTileWidth * kTileHeight));
    for (int line = 0; line < kTileHeight; ++line) {
        for (int u = 0; u < kTileWidth; ++u) {
            plain.push_back(map.sampleAt(tile * kTileWidth + u, tileRow * kTileHeight + line));
        }
    }
}

void MeshMap::appendRuns(const std::vector<TileKind>& kinds, std::vector<TileRun>& runs) const {
    for (int tile = 0; tile < tileColumns; ++tile) {
        const TileKind kind = kinds[static_cast<std::size_t>(tile)];
        if (runs.empty() || runs.back().kind != kind) {
            runs.push_back({tile, 0, kind});
        }
        ++runs.back().count;
    }
}

}  // namespace oru::rectifier
