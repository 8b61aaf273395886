#include "backends/gpu/cuda/CudaGpuRuntime.hpp"

namespace oru {

std::unique_ptr<GpuRuntime> makeCudaGpuRuntime(std::string& absence) {
    absence = "built without the CUDA toolkit";
    return nullptr;
}

}  // namespace oru
