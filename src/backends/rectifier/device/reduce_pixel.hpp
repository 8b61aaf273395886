#pragma once

#include "backends/rectifier/device/view_pixel.hpp"

namespace oru::rectifier {

/// The weights of cpu/reducer.hpp along one axis, where the pixel code can read them. Borrowed.
struct AxisTable {
    struct Taps {
        std::int32_t first;
        std::int32_t count;
        std::int32_t weight;  // index of the first
    };
    const Taps* taps;  // of each output
    const std::uint16_t* weights;

    [[nodiscard]] ORU_PIXEL_CODE unsigned weightOf(const Taps& output, int input) const {
        const int index = input - output.first;
        return index >= 0 && index < output.count ? weights[output.weight + index] : 0U;
    }
};

/// An image to be made smaller by area averaging.
struct ReduceJob {
    PairImage source;
    std::uint32_t* reduced;
    int pairs_per_row;
    int width;
    int height;
    AxisTable rows, luma, chroma;
};

namespace pixel {

/// One pair of the source averaged down its rows: 2^8 times Y0 and Y1, U and V, as 16 bits each.
struct PairSums {
    std::uint32_t luma;
    std::uint32_t chroma;
};

ORU_PIXEL_CODE PairSums sumDown(const ReduceJob& job, int sourcePair, const AxisTable::Taps& rows) {
    const std::uint32_t* input =
        job.source.pairs + static_cast<std::ptrdiff_t>(rows.first) * job.source.pairs_per_row + sourcePair;
    PairSums sums{0, 0};
    for (int i = 0; i < rows.count; ++i, input += job.source.pairs_per_row) {
        const std::uint32_t pair = loadPair(input);
        const std::uint32_t weight = job.rows.weights[rows.weight + i];
        sums.luma += (pair & 0x00FF00FF) * weight;
        sums.chroma += (pair >> 8 & 0x00FF00FF) * weight;
    }
    return sums;
}

}  // namespace pixel

/// One pair of the reduced image, to the bit what cpu/reducer.cpp makes of it.
ORU_PIXEL_CODE std::uint32_t reducedPairAt(const ReduceJob& job, int pair, int row) {
    constexpr std::uint32_t kHalf = 1U << 15;
    const AxisTable::Taps& rows = job.rows.taps[row];
    const AxisTable::Taps& across = job.chroma.taps[pair];
    const AxisTable::Taps& first = job.luma.taps[2 * pair];
    const AxisTable::Taps& second = job.luma.taps[pixel::smaller(2 * pair + 1, job.width - 1)];
    std::uint32_t y0 = kHalf;
    std::uint32_t y1 = kHalf;
    std::uint32_t u = kHalf;
    std::uint32_t v = kHalf;
    for (int i = 0; i < across.count; ++i) {
        const int input = across.first + i;
        const pixel::PairSums sums = pixel::sumDown(job, input, rows);
        const std::uint32_t even = sums.luma & 0xFFFF;
        const std::uint32_t odd = sums.luma >> 16;
        y0 += even * job.luma.weightOf(first, 2 * input) + odd * job.luma.weightOf(first, 2 * input + 1);
        y1 += even * job.luma.weightOf(second, 2 * input) + odd * job.luma.weightOf(second, 2 * input + 1);
        const std::uint32_t weight = job.chroma.weights[across.weight + i];
        u += (sums.chroma & 0xFFFF) * weight;
        v += (sums.chroma >> 16) * weight;
    }
    return y0 >> 16 | (u >> 16) << 8 | (y1 >> 16) << 16 | (v >> 16) << 24;
}

}  // namespace oru::rectifier
