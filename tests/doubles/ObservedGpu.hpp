#pragma once

#include <map>
#include <memory>
#include <utility>

#include "doubles/HostMemoryGpu.hpp"

namespace oru::doubles {

/// Passes every call on and keeps account of what is taken and given back; runs out of memory and refuses uploads on
/// demand. One thread at a time.
class ObservedGpu final : public GpuRuntime {
public:
    explicit ObservedGpu(std::unique_ptr<GpuRuntime> runtime = std::make_unique<HostMemoryGpu>())
        : real(std::move(runtime)) {}

    int cudaSetDevice(int index) override { return real->cudaSetDevice(index); }
    int cuCtxGetCurrent(CUctx_st** context) override { return real->cuCtxGetCurrent(context); }
    int cuCtxCreate_v2(CUctx_st** context, unsigned flags, int index) override {
        return real->cuCtxCreate_v2(context, flags, index);
    }
    int cuCtxPushCurrent_v2(CUctx_st* context) override { return real->cuCtxPushCurrent_v2(context); }
    int cuCtxPopCurrent_v2(CUctx_st** popped) override { return real->cuCtxPopCurrent_v2(popped); }
    int cudaStreamCreate(CUstream_st** stream) override { return real->cudaStreamCreate(stream); }
    int cudaStreamDestroy(CUstream_st* stream) override { return real->cudaStreamDestroy(stream); }
    int cudaStreamSynchronize(CUstream_st* stream) override { return real->cudaStreamSynchronize(stream); }
    int cudaEventCreate(CUevent_st** event) override {
        const int result = real->cudaEventCreate(event);
        (void)taken(*event, 0, events);
        return result;
    }
    int cudaEventDestroy(CUevent_st* event) override {
        givenBack(event, events);
        return real->cudaEventDestroy(event);
    }
    int cudaEventRecord(CUevent_st* event, CUstream_st* stream) override {
        return real->cudaEventRecord(event, stream);
    }
    int cudaEventSynchronize(CUevent_st* event) override { return real->cudaEventSynchronize(event); }
    void* hostAlloc(std::size_t bytes) override {
        return bytes > hostLimit ? nullptr : taken(real->hostAlloc(bytes), bytes, host);
    }
    void hostFree(void* memory) override {
        givenBack(memory, host);
        real->hostFree(memory);
    }
    void* deviceAlloc(std::size_t bytes) override {
        return bytes > deviceLimit ? nullptr : taken(real->deviceAlloc(bytes), bytes, device);
    }
    void deviceFree(void* memory) override {
        givenBack(memory, device);
        real->deviceFree(memory);
    }
    int copyHostToDevice(void* to, const void* from, std::size_t bytes) override {
        return real->copyHostToDevice(to, from, bytes);
    }
    int copyDeviceToHost(void* to, const void* from, std::size_t bytes) override {
        return real->copyDeviceToHost(to, from, bytes);
    }
    int copyDeviceToDevice(void* to, const void* from, std::size_t bytes) override {
        return refusesUploads ? 1 : real->copyDeviceToDevice(to, from, bytes);
    }
    int copyHostToDeviceAsync(void* to, const void* from, std::size_t bytes, CUstream_st* stream) override {
        return refusesUploads ? 1 : real->copyHostToDeviceAsync(to, from, bytes, stream);
    }
    int copyDeviceToHostAsync(void* to, const void* from, std::size_t bytes, CUstream_st* stream) override {
        return real->copyDeviceToHostAsync(to, from, bytes, stream);
    }

    /// Memories and events that were not given back.
    [[nodiscard]] std::size_t held() const { return host.size() + device.size() + events.size(); }

    std::map<void*, std::size_t> host;    ///< held, with their sizes
    std::map<void*, std::size_t> device;  ///< held, with their sizes
    int allocations = 0;                  ///< memories and events that were ever taken
    int wrongFrees = 0;                   ///< of what was not held
    std::size_t hostLimit = std::size_t{1} << 30;
    std::size_t deviceLimit = std::size_t{1} << 30;
    bool refusesUploads = false;

private:
    template <class Handle>
    Handle* taken(Handle* handle, std::size_t bytes, std::map<void*, std::size_t>& account) {
        if (handle != nullptr) {
            account[handle] = bytes;
            ++allocations;
        }
        return handle;
    }
    void givenBack(void* handle, std::map<void*, std::size_t>& account) {
        wrongFrees += handle != nullptr && account.erase(handle) == 0 ? 1 : 0;
    }

    std::unique_ptr<GpuRuntime> real;
    std::map<void*, std::size_t> events;
};

}  // namespace oru::doubles
