#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace koruone {

/// One panel of a plot: a quantity with its unit, and the names of the lines in it.
struct PlotPanel {
    std::string quantity;
    std::string unit;
    std::vector<std::string> lines;
};

/// Lines over time in panels below each other, written as an SVG. Memory stays constant however long the series: from
/// a few thousand samples on, neighbours are merged and drawn as the band between their smallest and largest value.
class TimePlot {
public:
    static constexpr std::size_t kMostLines = 9;

    explicit TimePlot(std::vector<PlotPanel> given);

    /// Adds one sample of every line, panel by panel; a value that is not finite is left out. With `afterGap` the lines
    /// are broken before it.
    void add(double seconds, std::span<const double> values, bool afterGap);
    /// The drawing, in UTF-8.
    [[nodiscard]] std::string svg(const std::string& title) const;

private:
    struct Bucket {
        double begin = 0.0;
        double end = 0.0;
        bool after_gap = false;
        std::array<double, kMostLines> low{};
        std::array<double, kMostLines> high{};
    };
    struct Frame;

    static void merge(Bucket& into, const Bucket& later);
    void mergePairs();
    [[nodiscard]] std::string panelSvg(std::size_t panel, std::size_t firstLine) const;
    [[nodiscard]] std::string gapsSvg(const Frame& frame) const;
    [[nodiscard]] std::string lineSvg(const Frame& frame, std::size_t line, const char* colour) const;
    [[nodiscard]] Frame frameOf(std::size_t panel, std::size_t firstLine) const;

    std::vector<PlotPanel> panels;
    std::vector<Bucket> buckets;
    uint64_t bucketSize = 1;
    uint64_t inLast = 0;
};

}  // namespace koruone
