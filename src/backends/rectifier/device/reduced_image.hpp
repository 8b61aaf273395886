#pragma once

#include "backends/rectifier/device/reduce_pixel.hpp"
#include "backends/rectifier/device/runtime_memory.hpp"
#include "backends/rectifier/geometry/rectified_camera.hpp"

namespace oru::rectifier {

/// A picture of less than full size in device memory, with the tables by which it is made. One thread at a time.
class ReducedPicture {
public:
    explicit ReducedPicture(GpuRuntime& runtime) : gpu(runtime), host(runtime), device(runtime) {}

    /// Takes the memory and fills the tables; work that is queued in the stream later finds them. False without memory.
    [[nodiscard]] bool prepare(Size source, Size reduced, CUstream_st* stream);

    /// How it is made from a frame of the source's size.
    [[nodiscard]] ReduceJob jobOf(const PairPicture& frame) const;
    [[nodiscard]] PairPicture picture() const { return made; }

private:
    GpuRuntime& gpu;
    HostMemory host;  // the tables, which the copy in the stream may read late
    DeviceMemory device;
    ReduceJob job{};
    PairPicture made{};
};

}  // namespace oru::rectifier
