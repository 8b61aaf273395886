#pragma once

#include <cstdint>
#include <vector>

#include "backends/rectifier/geometry/rectified_camera.hpp"
#include "backends/rectifier/reference/yuyv_frame.hpp"

namespace oru::rectifier {

/// How the samples along one axis share the work of making fewer: output `i` is the mean of the stretch it covers.
class AxisWeights {
public:
    static constexpr int kOne = 256;  // the weights of one output add up to this

    AxisWeights() = default;
    /// `inputs` samples become `outputs`, each covering `stretch` inputs (at least 1; the last may cover less).
    AxisWeights(int inputs, int outputs, double stretch);

    struct Taps {
        int first;
        int count;
        const std::uint16_t* weights;
    };
    [[nodiscard]] Taps of(int output) const;

private:
    std::vector<int> firstInput;
    std::vector<std::size_t> firstWeight;
    std::vector<std::uint16_t> weights;
};

/// Makes a smaller packed image by area averaging, luma and chroma alike, in integers: first down, then across, one
/// rounding. A view of less than full size is drawn from such an image, at its own scale, so that nothing aliases.
class Reducer {
public:
    Reducer(Size source, Size reduced);

    /// Bytes from row to row of the reduced image, and of the whole.
    [[nodiscard]] std::size_t step() const { return outputStep; }
    [[nodiscard]] std::size_t bytes() const { return outputStep * static_cast<std::size_t>(reduced.height); }

    /// Where the reduced chroma lies: it moves towards the middle of its pair as more samples are averaged.
    [[nodiscard]] float chromaSiting(float sourceSiting) const;

    /// Makes rows [firstRow, endRow) of the reduced image. `columnSums` is scratch for `scratchSize()` values.
    void reduceRows(const YuyvFrame& source, unsigned char* output, int firstRow, int endRow,
                    std::uint16_t* columnSums) const;
    [[nodiscard]] std::size_t scratchSize() const { return static_cast<std::size_t>(source.width) * 2; }

private:
    void sumColumns(const YuyvFrame& frame, int row, std::uint16_t* sums) const;
    void sumRow(const std::uint16_t* sums, unsigned char* output) const;

    Size source;
    Size reduced;
    std::size_t outputStep;
    AxisWeights rows;
    AxisWeights luma;
    AxisWeights chroma;
};

}  // namespace oru::rectifier
