#pragma once

#include <cstdlib>
#include <cstring>

#include "collaborators/GpuRuntime.hpp"

namespace oru::doubles {

/// Zeroed host memory under the GPU's names; every call succeeds.
class HostMemoryGpu : public GpuRuntime {
public:
    int cudaSetDevice(int) override { return 0; }
    int cuCtxGetCurrent(CUctx_st**) override { return 0; }
    int cuCtxCreate_v2(CUctx_st**, unsigned, int) override { return 0; }
    int cudaStreamCreate(CUstream_st**) override { return 0; }
    int cudaStreamDestroy(CUstream_st*) override { return 0; }
    int cudaStreamSynchronize(CUstream_st*) override { return 0; }
    void* hostAlloc(std::size_t bytes) override { return std::calloc(1, bytes); }
    void hostFree(void* memory) override { std::free(memory); }
    void* deviceAlloc(std::size_t bytes) override { return std::calloc(1, bytes); }
    void deviceFree(void* memory) override { std::free(memory); }
    int copyHostToDevice(void* to, const void* from, std::size_t bytes) override {
        std::memcpy(to, from, bytes);
        return 0;
    }
    int copyDeviceToHost(void* to, const void* from, std::size_t bytes) override {
        std::memcpy(to, from, bytes);
        return 0;
    }
};

}  // namespace oru::doubles
