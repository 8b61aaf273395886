#pragma once

#include <cstddef>
#include <string>

struct CUctx_st;
struct CUevent_st;
struct CUstream_st;

namespace oru {

/// The platform's GPU calls, real or on the host; also where a Mat gets its memory. Results are 0 on success.
/// Threads: any.
class GpuRuntime {
public:
    virtual ~GpuRuntime() = default;

    virtual int cudaSetDevice(int device) = 0;
    virtual int cuCtxGetCurrent(CUctx_st** context) = 0;
    virtual int cuCtxCreate_v2(CUctx_st** context, unsigned flags, int device) = 0;
    virtual int cudaStreamCreate(CUstream_st** stream) = 0;
    virtual int cudaStreamDestroy(CUstream_st* stream) = 0;
    virtual int cudaStreamSynchronize(CUstream_st* stream) = 0;

    /// Host memory that the device can read fast, aligned for vector loads; null when there is none.
    virtual void* hostAlloc(std::size_t bytes) = 0;
    virtual void hostFree(void* memory) = 0;
    virtual void* deviceAlloc(std::size_t bytes) = 0;
    virtual void deviceFree(void* memory) = 0;
    virtual int copyHostToDevice(void* to, const void* from, std::size_t bytes) = 0;
    virtual int copyDeviceToHost(void* to, const void* from, std::size_t bytes) = 0;

    /// A runtime whose device memory is the host's needs none of its own.
    virtual int copyDeviceToDevice(void* to, const void* from, std::size_t bytes) {
        return copyDeviceToHost(to, from, bytes);
    }

    // A runtime that does its work at once, in the only context there is, needs none of the following.

    /// Makes a context the calling thread's until it is popped. Streams and memory are made in that context.
    virtual int cuCtxPushCurrent_v2(CUctx_st* /*context*/) { return 0; }
    virtual int cuCtxPopCurrent_v2(CUctx_st** /*popped*/) { return 0; }

    /// Copies in the order of the stream; done when an event recorded after it has come. Host memory is of hostAlloc.
    virtual int copyHostToDeviceAsync(void* to, const void* from, std::size_t bytes, CUstream_st* /*stream*/) {
        return copyHostToDevice(to, from, bytes);
    }
    virtual int copyDeviceToHostAsync(void* to, const void* from, std::size_t bytes, CUstream_st* /*stream*/) {
        return copyDeviceToHost(to, from, bytes);
    }

    /// A mark in a stream. Waiting for it waits for nothing behind it, and not without a bound.
    virtual int cudaEventCreate(CUevent_st** event) {
        *event = nullptr;
        return 0;
    }
    virtual int cudaEventDestroy(CUevent_st* /*event*/) { return 0; }
    virtual int cudaEventRecord(CUevent_st* /*event*/, CUstream_st* /*stream*/) { return 0; }
    virtual int cudaEventSynchronize(CUevent_st* /*event*/) { return 0; }

    /// The device in words, for people.
    [[nodiscard]] virtual std::string description() { return "none"; }
};

}  // namespace oru
