#pragma once

#include <cstdint>
#include <vector>

#include "backends/rectifier/geometry/ViewMap.hpp"

namespace oru::rectifier {

/// How the pixels of a tile are drawn: plainly, or in groups of neighbours whose samples lie in one 8 by 3 window.
enum class TileKind : std::uint8_t { EXACT, GROUPS_OF_TWO, GROUPS_OF_FOUR };

/// Neighbouring tiles of one kind.
struct TileRun {
    int first;
    int count;
    TileKind kind;
};

/// A view map prepared for speed: the exact position at every fourth pixel, in 1/65536 pixel, between which positions
/// are interpolated; and for each tile of 32 by 8 pixels how it may be drawn. A tile is Plain when interpolation would
/// miss the exact position by more than `kLargestError`, when it reaches outside the image, or when the image is
/// too steep or too strongly reduced there. Plain tiles keep their exact positions.
class MeshMap {
public:
    static constexpr int kCell = 4;  // pixels between nodes, across and down
    static constexpr int kTileWidth = 32;
    static constexpr int kTileHeight = 8;
    static constexpr int kSpareNodes = 32;  // readable after the last of a row
    static constexpr double kLargestError = 1.0 / 80;

    struct Kinds {
        TileKind color;
        TileKind gray;
    };

    /// `fast` false makes every tile Plain. `chromaSiting` is that of the image drawn from.
    MeshMap(const ViewMap& map, Size view, float chromaSiting, bool fast);

    [[nodiscard]] int tilesPerRow() const { return tileColumns; }
    [[nodiscard]] int nodesPerRow() const { return nodeColumns; }
    [[nodiscard]] const std::int32_t* nodesX(int nodeRow) const { return &nodeX[nodeIndex(nodeRow)]; }
    [[nodiscard]] const std::int32_t* nodesY(int nodeRow) const { return &nodeY[nodeIndex(nodeRow)]; }
    [[nodiscard]] const std::vector<TileRun>& runs(int tileRow, bool gray) const {
        return (gray ? grayRuns : colorRuns)[static_cast<std::size_t>(tileRow)];
    }
    /// The 32 exact positions of row `line` (0 to 7) of a Plain tile.
    [[nodiscard]] const SourcePosition* plainPositions(int tileRow, int tile, int line) const;

private:
    [[nodiscard]] std::size_t nodeIndex(int row) const {
        return static_cast<std::size_t>(row) * static_cast<std::size_t>(nodeColumns + kSpareNodes);
    }
    void placeNodes(const ViewMap& map);
    [[nodiscard]] Kinds kindsOf(const ViewMap& map, Size view, int tileRow, int tile, double chromaSiting) const;
    void keepPlain(const ViewMap& map, int tileRow, int tile);
    void appendRuns(const std::vector<TileKind>& kinds, std::vector<TileRun>& runs) const;

    int tileColumns;
    int tileRows;
    int nodeColumns;
    int nodeRows;
    std::vector<std::int32_t> nodeX;
    std::vector<std::int32_t> nodeY;
    std::vector<std::vector<TileRun>> colorRuns;
    std::vector<std::vector<TileRun>> grayRuns;
    std::vector<std::int32_t> plainIndex;  // of each tile, -1 when it is not Plain
    std::vector<SourcePosition> plain;
};

}  // namespace oru::rectifier
