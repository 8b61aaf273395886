#pragma once

#include "backends/rectifier/device/reduce_pixel.hpp"
#include "backends/rectifier/geometry/rectified_camera.hpp"
#include "backends/rectifier/reference/runtime_memory.hpp"

namespace oru::rectifier {

/// An image of less than full size in device memory, with the tables by which it is made. One thread at a time.
class ReducedImage {
public:
    explicit ReducedImage(GpuRuntime& runtime) : gpu(runtime), host(runtime), device(runtime) {}

    /// Takes the memory and fills the tables; work that is queued in the stream later finds them. False without memory.
    [[nodiscard]] bool prepare(Size source, Size reduced, CUstream_st* stream);

    /// How it is made from a frame of the source's size.
    [[nodiscard]] ReduceJob jobOf(const PairImage& frame) const;
    [[nodiscard]] PairImage image() const { return made; }

private:
    GpuRuntime& gpu;
    HostMemory host;  // the tables, which the copy in the stream may read late
    DeviceMemory device;
    ReduceJob job{};
    PairImage made{};
};

}  // namespace oru::rectifier
