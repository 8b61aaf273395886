#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>

#include "backends/gpu/host/host_gpu_runtime.hpp"
#include "utils/Mutex.hpp"

namespace oru {
namespace {

constexpr int kSuccess = 0;
constexpr int kInvalidValue = 1;
constexpr int kInvalidDevice = 101;
constexpr int kUnknownStream = 400;
constexpr std::size_t kHostAlignment = 64;
constexpr std::size_t kDeviceAlignment = 256;

void* allocate(std::size_t alignment, std::size_t size) {
    if (size == 0 || size > SIZE_MAX - alignment) {
        return nullptr;
    }
    return std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
}

int copy(void* to, const void* from, std::size_t size) {
    if (size == 0) {
        return kSuccess;
    }
    if (to == nullptr || from == nullptr) {
        return kInvalidValue;
    }
    std::memcpy(to, from, size);
    return kSuccess;
}

class HostGpuRuntime final : public GpuRuntime {
public:
    explicit HostGpuRuntime(std::string absence) : reason(std::move(absence)) {}

    int cudaSetDevice(int device) override { return device == 0 ? kSuccess : kInvalidDevice; }

    int cuCtxGetCurrent(CUctx_st** result) override {
        if (result == nullptr) {
            return kInvalidValue;
        }
        *result = contextHandle();
        return kSuccess;
    }

    int cuCtxCreate_v2(CUctx_st** result, unsigned /*flags*/, int device) override {
        return device == 0 ? cuCtxGetCurrent(result) : kInvalidDevice;
    }

    int cudaStreamCreate(CUstream_st** result) override {
        if (result == nullptr) {
            return kInvalidValue;
        }
        auto handle = std::make_unique<Handle>();
        *result = reinterpret_cast<CUstream_st*>(handle.get());
        const MutexLock lock(mutex);
        streams.emplace(*result, std::move(handle));
        return kSuccess;
    }

    int cudaStreamDestroy(CUstream_st* stream) override {
        const MutexLock lock(mutex);
        return streams.erase(stream) == 1 ? kSuccess : kUnknownStream;
    }

    int cudaStreamSynchronize(CUstream_st* stream) override {
        const MutexLock lock(mutex);
        return stream == nullptr || streams.count(stream) == 1 ? kSuccess : kUnknownStream;
    }

    void* hostAlloc(std::size_t size) override { return allocate(kHostAlignment, size); }
    void hostFree(void* memory) override { std::free(memory); }
    void* deviceAlloc(std::size_t size) override { return allocate(kDeviceAlignment, size); }
    void deviceFree(void* memory) override { std::free(memory); }
    int copyHostToDevice(void* to, const void* from, std::size_t size) override { return copy(to, from, size); }
    int copyDeviceToHost(void* to, const void* from, std::size_t size) override { return copy(to, from, size); }

    std::string description() override { return "none (" + reason + "); views are drawn on the host"; }

private:
    struct Handle {
        unsigned char byte = 0;
    };

    CUctx_st* contextHandle() { return reinterpret_cast<CUctx_st*>(&context); }

    std::string reason;
    Handle context;
    Mutex mutex;
    std::map<CUstream_st*, std::unique_ptr<Handle>> streams ORU_GUARDED_BY(mutex);
};

}  // namespace

std::unique_ptr<GpuRuntime> makeHostGpuRuntime(std::string absence) {
    return std::make_unique<HostGpuRuntime>(std::move(absence));
}

}  // namespace oru
