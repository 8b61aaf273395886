#include "backends/rectifier/device/ReducedImage.hpp"

#include <cstring>
#include <vector>

#include "backends/rectifier/device/view_job.hpp"
#include "backends/rectifier/reference/reducer.hpp"

namespace oru::rectifier {
namespace {

/// One axis as it goes to the device.
struct AxisContent {
    std::vector<AxisTable::Taps> taps;
    std::vector<std::uint16_t> weights;

    AxisContent(int inputs, int outputs, double stretch) {
        const AxisWeights axis(inputs, outputs, stretch);
        for (int output = 0; output < outputs; ++output) {
            const AxisWeights::Taps of = axis.of(output);
            taps.push_back({of.first, of.count, static_cast<std::int32_t>(weights.size())});
            weights.insert(weights.end(), of.weights, of.weights + of.count);
        }
    }
    [[nodiscard]] std::size_t tapBytes() const { return taps.size() * sizeof(AxisTable::Taps); }
    [[nodiscard]] std::size_t bytes() const {
        return (tapBytes() + weights.size() * sizeof(std::uint16_t) + 3) / 4 * 4;
    }
};

/// Lays the tables of an axis out at `host`; they will be read at `device`.
AxisTable place(const AxisContent& axis, unsigned char* host, const unsigned char* device) {
    std::memcpy(host, axis.taps.data(), axis.tapBytes());
    std::memcpy(host + axis.tapBytes(), axis.weights.data(), axis.weights.size() * sizeof(std::uint16_t));
    return {reinterpret_cast<const AxisTable::Taps*>(device),
            reinterpret_cast<const std::uint16_t*>(device + axis.tapBytes())};
}

}  // namespace

bool ReducedImage::prepare(Size source, Size reduced, CUstream_st* stream) {
    const Reducer reducer(source, reduced);
    const double stretchX = static_cast<double>(source.width) / reduced.width;
    const double stretchY = static_cast<double>(source.height) / reduced.height;
    const int pairs = (reduced.width + 1) / 2;
    const AxisContent rows(source.height, reduced.height, stretchY);
    const AxisContent luma(source.width, reduced.width, stretchX);
    const AxisContent chroma(source.width / 2, pairs, stretchX);
    const std::size_t tableBytes = rows.bytes() + luma.bytes() + chroma.bytes();
    const std::size_t imageBytes = static_cast<std::size_t>(pairs) * 4 * static_cast<std::size_t>(reduced.height);
    unsigned char* const tables = host.reserve(tableBytes);
    unsigned char* const memory = device.reserve(imageBytes + tableBytes);
    if (tables == nullptr || memory == nullptr) {
        return false;
    }
    const unsigned char* const placed = memory + imageBytes;
    made = pairImage(memory, reduced, reducer.chromaSiting(kChromaSiting));
    job = {.source = {},
           .reduced = reinterpret_cast<std::uint32_t*>(memory),
           .pairs_per_row = pairs,
           .width = reduced.width,
           .height = reduced.height,
           .rows = place(rows, tables, placed),
           .luma = place(luma, tables + rows.bytes(), placed + rows.bytes()),
           .chroma = place(chroma, tables + rows.bytes() + luma.bytes(), placed + rows.bytes() + luma.bytes())};
    return gpu.copyHostToDeviceAsync(memory + imageBytes, tables, tableBytes, stream) == 0;
}

ReduceJob ReducedImage::jobOf(const PairImage& frame) const {
    ReduceJob complete = job;
    complete.source = frame;
    return complete;
}

}  // namespace oru::rectifier
