#include "CudaRectifier.hpp"

namespace oru {

std::unique_ptr<MonoRectifier> makeCudaRectifier(GpuRuntime& /*gpu*/) {
    return nullptr;
}

}  // namespace oru
