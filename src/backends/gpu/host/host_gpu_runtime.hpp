#pragma once

#include <memory>
#include <string>

#include "collaborators/GpuRuntime.hpp"

namespace oru {

/// The GPU calls on a machine without a GPU. "Device" memory is host memory of its own, so a missing copy
/// between the two kinds shows as a wrong image here as well. There is one context, always current; work is
/// done at once, so a stream has nothing to wait for. Results are those of the CUDA runtime: 0 success,
/// 1 invalid value, 101 no such device, 400 unknown stream.
/// `absence` says why there is no device; the description repeats it.
/// Threads: any. Memory that was not given back stays with the process, as it does with a real device.
std::unique_ptr<GpuRuntime> makeHostGpuRuntime(std::string absence = "not looked for");

}  // namespace oru
