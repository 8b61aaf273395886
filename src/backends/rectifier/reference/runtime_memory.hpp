#pragma once

#include <cstddef>
#include <utility>

#include "collaborators/GpuRuntime.hpp"

namespace oru::rectifier {

/// One kind of memory of a GPU runtime, grown on demand and kept. The runtime outlives it. One thread at a time.
template <void* (GpuRuntime::*kAlloc)(std::size_t), void (GpuRuntime::*kFree)(void*)>
class RuntimeMemory {
public:
    explicit RuntimeMemory(GpuRuntime& runtime) : gpu(runtime) {}
    ~RuntimeMemory() { release(); }
    RuntimeMemory(const RuntimeMemory&) = delete;
    RuntimeMemory& operator=(const RuntimeMemory&) = delete;

    /// At least so many bytes, whose content is lost when they have to grow; null when there is no memory.
    unsigned char* reserve(std::size_t bytes) {
        if (bytes > capacity) {
            release();
            memory = static_cast<unsigned char*>((gpu.*kAlloc)(bytes));
            capacity = memory == nullptr ? 0 : bytes;
        }
        return memory;
    }

    void release() {
        if (memory != nullptr) {
            (gpu.*kFree)(std::exchange(memory, nullptr));
        }
        capacity = 0;
    }

private:
    GpuRuntime& gpu;
    unsigned char* memory = nullptr;
    std::size_t capacity = 0;
};

using HostMemory = RuntimeMemory<&GpuRuntime::hostAlloc, &GpuRuntime::hostFree>;
using DeviceMemory = RuntimeMemory<&GpuRuntime::deviceAlloc, &GpuRuntime::deviceFree>;

}  // namespace oru::rectifier
