#pragma once

#include <memory>

#include "backends/rectifier/device/reduce_pixel.hpp"
#include "backends/rectifier/device/view_pixel.hpp"
#include "collaborators/GpuRuntime.hpp"

namespace oru::rectifier {

/// Runs the pixel code over whole images: on a device in the order of the stream, without waiting for it. Images,
/// tables and views lie in memory that the GPU runtime calls the device's. Results are 0 on success.
class DeviceWork {
public:
    virtual ~DeviceWork() = default;

    virtual int reduce(const ReduceJob& job, CUstream_st* stream) = 0;
    virtual int drawBgra(const ViewJob& job, bool rectified, CUstream_st* stream) = 0;
    virtual int drawGray(const ViewJob& job, bool rectified, CUstream_st* stream) = 0;
};

/// On CUDA, one kernel for each operation; null in a build without the toolkit.
[[nodiscard]] std::unique_ptr<DeviceWork> makeCudaWork();

}  // namespace oru::rectifier
