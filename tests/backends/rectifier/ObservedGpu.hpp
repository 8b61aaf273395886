#pragma once

#include <memory>

#include "collaborators/GpuRuntime.hpp"

namespace oru {

/// Passes every call on, counts what is taken and given back, and refuses uploads on demand. One thread at a time.
class ObservedGpu final : public GpuRuntime {
public:
    explicit ObservedGpu(std::unique_ptr<GpuRuntime> runtime) : real(std::move(runtime)) {}

    int cudaSetDevice(int device) override { return real->cudaSetDevice(device); }
    int cuCtxGetCurrent(CUctx_st** context) override { return real->cuCtxGetCurrent(context); }
    int cuCtxCreate_v2(CUctx_st** context, unsigned flags, int device) override {
        return real->cuCtxCreate_v2(context, flags, device);
    }
    int cuCtxPushCurrent_v2(CUctx_st* context) override { return real->cuCtxPushCurrent_v2(context); }
    int cuCtxPopCurrent_v2(CUctx_st** popped) override { return real->cuCtxPopCurrent_v2(popped); }
    int cudaStreamCreate(CUstream_st** stream) override { return real->cudaStreamCreate(stream); }
    int cudaStreamDestroy(CUstream_st* stream) override { return real->cudaStreamDestroy(stream); }
    int cudaStreamSynchronize(CUstream_st* stream) override { return real->cudaStreamSynchronize(stream); }
    int cudaEventCreate(CUevent_st** event) override {
        const int result = real->cudaEventCreate(event);
        counted(*event);
        return result;
    }
    int cudaEventDestroy(CUevent_st* event) override {
        held -= event != nullptr ? 1 : 0;
        return real->cudaEventDestroy(event);
    }
    int cudaEventRecord(CUevent_st* event, CUstream_st* stream) override {
        return real->cudaEventRecord(event, stream);
    }
    int cudaEventSynchronize(CUevent_st* event) override { return real->cudaEventSynchronize(event); }
    void* hostAlloc(std::size_t bytes) override { return counted(real->hostAlloc(bytes)); }
    void hostFree(void* memory) override {
        held -= memory != nullptr ? 1 : 0;
        real->hostFree(memory);
    }
    void* deviceAlloc(std::size_t bytes) override { return counted(real->deviceAlloc(bytes)); }
    void deviceFree(void* memory) override {
        held -= memory != nullptr ? 1 : 0;
        real->deviceFree(memory);
    }
    int copyHostToDevice(void* to, const void* from, std::size_t bytes) override {
        return real->copyHostToDevice(to, from, bytes);
    }
    int copyDeviceToHost(void* to, const void* from, std::size_t bytes) override {
        return real->copyDeviceToHost(to, from, bytes);
    }
    int copyHostToDeviceAsync(void* to, const void* from, std::size_t bytes, CUstream_st* stream) override {
        return refusesUploads ? 1 : real->copyHostToDeviceAsync(to, from, bytes, stream);
    }
    int copyDeviceToHostAsync(void* to, const void* from, std::size_t bytes, CUstream_st* stream) override {
        return real->copyDeviceToHostAsync(to, from, bytes, stream);
    }

    int held = 0;         // memories and events that were not given back
    int allocations = 0;  // and all that were ever taken
    bool refusesUploads = false;

private:
    template <class Handle>
    Handle* counted(Handle* taken) {
        held += taken != nullptr ? 1 : 0;
        allocations += taken != nullptr ? 1 : 0;
        return taken;
    }

    std::unique_ptr<GpuRuntime> real;
};

}  // namespace oru
