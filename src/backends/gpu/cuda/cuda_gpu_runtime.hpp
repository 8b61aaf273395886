#pragma once

#include <memory>
#include <string>

#include "collaborators/GpuRuntime.hpp"

namespace oru {

/// The GPU calls of CUDA; results are those of the CUDA runtime and driver. Null where no device answers, or in a build
/// without the toolkit; `absence` then says why. The program itself needs no driver to start.
/// Streams do not wait for the default stream. Memory, streams and events are made in the calling thread's context (the
/// device's primary one when it has none) and may be given back from any thread; their context must still be there.
/// Threads: any.
std::unique_ptr<GpuRuntime> makeCudaGpuRuntime(std::string& absence);

}  // namespace oru
