#pragma once

#include <cstddef>

struct CUctx_st;
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
};

}  // namespace oru
