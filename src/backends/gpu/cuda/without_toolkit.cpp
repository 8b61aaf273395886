#include "backends/gpu/cuda/cuda_gpu_runtime.hpp"

namespace oru {

std::unique_ptr<GpuRuntime> makeCudaGpuRuntime(std::string& absence) {
    absence = "built without the CUDA toolkit";
    return nullptr;
}

}  // namespace oru
