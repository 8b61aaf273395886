#pragma once

#include <cstdlib>
#include <cstring>

#include "collaborators/GpuRuntime.hpp"

namespace oru::doubles {

/// Zeroed host memory under the GPU's names; what else the GPU does is up to the double.
class HostMemoryGpu : public GpuRuntime {
public:
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
