#include "backends/rectifier/cuda/cuda_rectifier.hpp"

#include "backends/rectifier/device/device_rectifier.hpp"

namespace oru {

std::unique_ptr<MonoRectifier> makeCudaRectifier(GpuRuntime& gpu) {
    auto work = rectifier::makeCudaWork();
    return work == nullptr ? nullptr : rectifier::makeDeviceRectifier(gpu, std::move(work));
}

}  // namespace oru
