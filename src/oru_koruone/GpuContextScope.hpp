#pragma once

#include "collaborators/GpuRuntime.hpp"

namespace oru {

/// The camera's context is the calling thread's own while this lives: every call may come from another thread, and the
/// application may work in contexts of its own. A null context changes nothing.
class GpuContextScope {
public:
    GpuContextScope(GpuRuntime& runtime, CUctx_st* context)
        : gpu(runtime), pushed(context != nullptr && gpu.cuCtxPushCurrent_v2(context) == 0) {}
    ~GpuContextScope() {
        if (pushed) {
            CUctx_st* popped = nullptr;
            (void)gpu.cuCtxPopCurrent_v2(&popped);
        }
    }
    GpuContextScope(const GpuContextScope&) = delete;
    GpuContextScope& operator=(const GpuContextScope&) = delete;

private:
    GpuRuntime& gpu;
    bool pushed;
};

}  // namespace oru
