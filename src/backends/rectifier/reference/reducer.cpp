#include "backends/rectifier/reference/reducer.hpp"

#include <algorithm>
#include <cmath>

namespace oru::rectifier {
namespace {

double stretchOf(int inputs, int outputs) {
    return static_cast<double>(inputs) / outputs;
}

unsigned char weightedMean(AxisWeights::Taps taps, const std::uint16_t* samples, int spacing) {
    std::uint32_t sum = 1U << 15;
    for (int i = 0; i < taps.count; ++i) {
        sum += std::uint32_t{taps.weights[i]} * samples[(taps.first + i) * spacing];
    }
    return static_cast<unsigned char>(sum >> 16);
}

}  // namespace

AxisWeights::AxisWeights(int inputs, int outputs, double stretch) {
    for (int output = 0; output < outputs; ++output) {
        const double begin = output * stretch;
        const double end = std::min<double>(inputs, begin + stretch);
        const int first = static_cast<int>(begin + 1e-9);
        const int last = std::max(first, static_cast<int>(std::ceil(end - 1e-9)) - 1);
        firstInput.push_back(first);
        firstWeight.push_back(weights.size());
        int spent = 0;
        for (int input = first; input <= last; ++input) {
            const double covered = (std::min<double>(input + 1, end) - begin) / (end - begin);
            const int spentNow = input == last ? kOne : static_cast<int>(std::lround(kOne * covered));
            weights.push_back(static_cast<std::uint16_t>(spentNow - spent));
            spent = spentNow;
        }
    }
    firstWeight.push_back(weights.size());
}

AxisWeights::Taps AxisWeights::of(int output) const {
    const auto index = static_cast<std::size_t>(output);
    return {firstInput[index], static_cast<int>(firstWeight[index + 1] - firstWeight[index]),
            weights.data() + firstWeight[index]};
}

Reducer::Reducer(Size sourceSize, Size reducedSize)
    : source(sourceSize),
      reduced(reducedSize),
      outputStep((static_cast<std::size_t>(reducedSize.width) * 2 + 127) / 64 * 64),
      rows(source.height, reduced.height, stretchOf(source.height, reduced.height)),
      luma(source.width, reduced.width, stretchOf(source.width, reduced.width)),
      chroma(source.width / 2, (reduced.width + 1) / 2, stretchOf(source.width, reduced.width)) {}

float Reducer::chromaSiting(float sourceSiting) const {
    const float stretch = static_cast<float>(source.width) / static_cast<float>(reduced.width);
    return 0.5F + (sourceSiting - 0.5F) / stretch;
}

void Reducer::reduceRows(const YuyvFrame& frame, unsigned char* output, int firstRow, int endRow,
                         std::uint16_t* columnSums) const {
    for (int row = firstRow; row < endRow; ++row) {
        sumColumns(frame, row, columnSums);
        sumRow(columnSums, output + static_cast<std::size_t>(row) * outputStep);
    }
}

void Reducer::sumColumns(const YuyvFrame& frame, int row, std::uint16_t* sums) const {
    const AxisWeights::Taps taps = rows.of(row);
    const std::size_t bytes = scratchSize();
    std::fill_n(sums, bytes, std::uint16_t{0});
    for (int i = 0; i < taps.count; ++i) {
        const unsigned char* input = frame.row(taps.first + i);
        const unsigned weight = taps.weights[i];
        for (std::size_t byte = 0; byte < bytes; ++byte) {
            sums[byte] = static_cast<std::uint16_t>(sums[byte] + weight * input[byte]);
        }
    }
}

void Reducer::sumRow(const std::uint16_t* sums, unsigned char* output) const {
    for (int pair = 0; pair < (reduced.width + 1) / 2; ++pair, output += 4) {
        const int second = std::min(2 * pair + 1, reduced.width - 1);
        const AxisWeights::Taps chromaTaps = chroma.of(pair);
        output[0] = weightedMean(luma.of(2 * pair), sums, 2);
        output[1] = weightedMean(chromaTaps, sums + 1, 4);
        output[2] = weightedMean(luma.of(second), sums, 2);
        output[3] = weightedMean(chromaTaps, sums + 3, 4);
    }
}

}  // namespace oru::rectifier
