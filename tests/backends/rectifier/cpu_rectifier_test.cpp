#include "backends/rectifier/cpu/cpu_rectifier.hpp"

#include "backends/gpu/host/host_gpu_runtime.hpp"
#include "contracts/rectifier_contract.hpp"

namespace oru {
namespace {

INSTANTIATE_TEST_SUITE_P(Cpu, RectifierContract,
                         testing::Values(Subject{"TwoThreads", [](std::string&) { return makeHostGpuRuntime(); },
                                                 [](GpuRuntime& gpu) { return makeCpuRectifier(gpu, 2); }}),
                         nameOf);

}  // namespace
}  // namespace oru
