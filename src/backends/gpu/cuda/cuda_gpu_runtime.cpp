#include <cudaTypedefs.h>
#include <cuda_runtime_api.h>
#include <dlfcn.h>
#include <sched.h>
#include <time.h>

#include "backends/gpu/cuda/cuda_gpu_runtime.hpp"

namespace oru {
namespace {

constexpr int kOldestMajor = 7;  // of the compute capability that the pixel code is compiled for
constexpr int kOldestMinor = 5;
constexpr int kYields = 50;  // about as long as a view takes
constexpr long kPauseNs = 50'000;
constexpr int kMostPauses = 40'000;  // two seconds at least

int resultOf(cudaError_t error) {
    return static_cast<int>(error);
}

/// What only the driver offers, found by name: the program starts without a driver, too.
struct Driver {
    PFN_cuCtxGetCurrent_v4000 ctxGetCurrent = nullptr;
    PFN_cuCtxCreate_v3020 ctxCreate = nullptr;
    PFN_cuCtxPushCurrent_v4000 ctxPush = nullptr;
    PFN_cuCtxPopCurrent_v4000 ctxPop = nullptr;
    PFN_cuStreamGetCtx_v9020 streamGetCtx = nullptr;
    PFN_cuPointerGetAttribute_v4000 pointerGetAttribute = nullptr;

    [[nodiscard]] bool load() {
        return find("cuCtxGetCurrent", 4000, ctxGetCurrent) && find("cuCtxCreate", 3020, ctxCreate) &&
               find("cuCtxPushCurrent", 4000, ctxPush) && find("cuCtxPopCurrent", 4000, ctxPop) &&
               find("cuStreamGetCtx", 9020, streamGetCtx) && find("cuPointerGetAttribute", 4000, pointerGetAttribute);
    }

private:
    template <class Function>
    static bool find(const char* name, [[maybe_unused]] unsigned version, Function& function) {
        void* found = nullptr;
#if CUDART_VERSION >= 12050
        const cudaError_t error = cudaGetDriverEntryPointByVersion(name, &found, version, cudaEnableDefault, nullptr);
#else
        const cudaError_t error = cudaGetDriverEntryPoint(name, &found, cudaEnableDefault);
#endif
        function = reinterpret_cast<Function>(found);
        return error == cudaSuccess && found != nullptr;
    }
};

/// Makes a context current while it lives; null changes nothing.
class InContext {
public:
    InContext(const Driver& entries, CUcontext context)
        : driver(entries), pushed(context != nullptr && driver.ctxPush(context) == CUDA_SUCCESS) {}
    ~InContext() {
        if (pushed) {
            CUcontext popped = nullptr;
            (void)driver.ctxPop(&popped);
        }
    }
    InContext(const InContext&) = delete;
    InContext& operator=(const InContext&) = delete;

private:
    const Driver& driver;
    bool pushed;
};

class CudaGpuRuntime final : public GpuRuntime {
public:
    CudaGpuRuntime(const Driver& entries, std::string text) : driver(entries), deviceText(std::move(text)) {}

    int cudaSetDevice(int device) override { return resultOf(::cudaSetDevice(device)); }
    int cuCtxGetCurrent(CUctx_st** context) override { return driver.ctxGetCurrent(context); }
    int cuCtxCreate_v2(CUctx_st** context, unsigned flags, int device) override {
        return driver.ctxCreate(context, flags, device);
    }
    int cuCtxPushCurrent_v2(CUctx_st* context) override { return driver.ctxPush(context); }
    int cuCtxPopCurrent_v2(CUctx_st** popped) override { return driver.ctxPop(popped); }

    int cudaStreamCreate(CUstream_st** stream) override {
        return resultOf(cudaStreamCreateWithFlags(stream, cudaStreamNonBlocking));
    }
    int cudaStreamDestroy(CUstream_st* stream) override {
        const InContext own(driver, contextOf(stream));
        return resultOf(::cudaStreamDestroy(stream));
    }
    int cudaStreamSynchronize(CUstream_st* stream) override { return resultOf(::cudaStreamSynchronize(stream)); }

    int cudaEventCreate(CUevent_st** event) override {
        return resultOf(cudaEventCreateWithFlags(event, cudaEventDisableTiming));
    }
    int cudaEventDestroy(CUevent_st* event) override { return resultOf(::cudaEventDestroy(event)); }
    int cudaEventRecord(CUevent_st* event, CUstream_st* stream) override {
        return resultOf(::cudaEventRecord(event, stream));
    }
    int cudaEventSynchronize(CUevent_st* event) override;

    void* hostAlloc(std::size_t bytes) override {
        void* memory = nullptr;
        return bytes != 0 && succeeds(cudaHostAlloc(&memory, bytes, cudaHostAllocPortable)) ? memory : nullptr;
    }
    void hostFree(void* memory) override {
        const InContext own(driver, contextOf(memory));
        (void)cudaFreeHost(memory);
    }
    void* deviceAlloc(std::size_t bytes) override {
        void* memory = nullptr;
        return bytes != 0 && succeeds(cudaMalloc(&memory, bytes)) ? memory : nullptr;
    }
    void deviceFree(void* memory) override {
        const InContext own(driver, contextOf(memory));
        (void)cudaFree(memory);
    }

    int copyHostToDevice(void* to, const void* from, std::size_t bytes) override {
        const InContext own(driver, contextOf(to));
        return resultOf(cudaMemcpy(to, from, bytes, cudaMemcpyHostToDevice));
    }
    int copyDeviceToHost(void* to, const void* from, std::size_t bytes) override {
        const InContext own(driver, contextOf(from));
        return resultOf(cudaMemcpy(to, from, bytes, cudaMemcpyDeviceToHost));
    }
    int copyDeviceToDevice(void* to, const void* from, std::size_t bytes) override {
        const InContext own(driver, contextOf(from));
        const cudaError_t copied = cudaMemcpy(to, from, bytes, cudaMemcpyDeviceToDevice);
        // Such a copy comes back before it is done.
        return resultOf(copied == cudaSuccess ? ::cudaStreamSynchronize(nullptr) : copied);
    }
    int copyHostToDeviceAsync(void* to, const void* from, std::size_t bytes, CUstream_st* stream) override {
        return resultOf(cudaMemcpyAsync(to, from, bytes, cudaMemcpyHostToDevice, stream));
    }
    int copyDeviceToHostAsync(void* to, const void* from, std::size_t bytes, CUstream_st* stream) override {
        return resultOf(cudaMemcpyAsync(to, from, bytes, cudaMemcpyDeviceToHost, stream));
    }

    std::string description() override { return deviceText; }

private:
    /// The error of a refused allocation must not be taken for that of a later call.
    static bool succeeds(cudaError_t error) {
        if (error != cudaSuccess) {
            (void)cudaGetLastError();
        }
        return error == cudaSuccess;
    }
    [[nodiscard]] CUcontext contextOf(const void* memory) const {
        CUcontext context = nullptr;
        const auto address = reinterpret_cast<CUdeviceptr>(memory);
        const bool known = memory != nullptr &&
                           driver.pointerGetAttribute(&context, CU_POINTER_ATTRIBUTE_CONTEXT, address) == CUDA_SUCCESS;
        return known ? context : nullptr;
    }
    [[nodiscard]] CUcontext contextOf(CUstream_st* stream) const {
        CUcontext context = nullptr;
        const bool known = stream != nullptr && driver.streamGetCtx(stream, &context) == CUDA_SUCCESS;
        return known ? context : nullptr;
    }

    Driver driver;
    std::string deviceText;
};

/// Asks now and then, and gives up in the end: a device that hangs must not take the application along.
int CudaGpuRuntime::cudaEventSynchronize(CUevent_st* event) {
    cudaError_t state = cudaEventQuery(event);
    for (int yield = 0; state == cudaErrorNotReady && yield < kYields; ++yield) {
        (void)sched_yield();
        state = cudaEventQuery(event);
    }
    for (int pause = 0; state == cudaErrorNotReady && pause < kMostPauses; ++pause) {
        const timespec duration{0, kPauseNs};
        (void)::nanosleep(&duration, nullptr);
        state = cudaEventQuery(event);
    }
    return resultOf(state == cudaErrorNotReady ? cudaErrorTimeout : state);
}

std::string versionText(int version) {
    return std::to_string(version / 1000) + "." + std::to_string(version % 1000 / 10);
}

std::string describe(const cudaDeviceProp& device) {
    int driverVersion = 0;
    (void)cudaDriverGetVersion(&driverVersion);
    return std::string(device.name) + ", compute capability " + std::to_string(device.major) + "." +
           std::to_string(device.minor) + ", " + std::to_string(device.totalGlobalMem >> 20) + " MiB, CUDA " +
           versionText(CUDART_VERSION) + " on a driver for " + versionText(driverVersion);
}

bool isDriverInstalled() {
    void* const library = ::dlopen("libcuda.so.1", RTLD_LAZY | RTLD_LOCAL);
    return library != nullptr && ::dlclose(library) == 0;
}

/// The runtime calls a missing driver an old one.
std::string describe(cudaError_t error) {
    return error == cudaErrorInsufficientDriver && !isDriverInstalled()
               ? "no NVIDIA driver is installed"
               : std::string("no CUDA device answers: ") + cudaGetErrorString(error);
}

}  // namespace

std::unique_ptr<GpuRuntime> makeCudaGpuRuntime(std::string& absence) {
    int count = 0;
    cudaDeviceProp device{};
    cudaError_t error = cudaGetDeviceCount(&count);
    if (error == cudaSuccess) {
        error = cudaGetDeviceProperties(&device, 0);
    }
    if (error != cudaSuccess) {
        (void)cudaGetLastError();
        absence = describe(error);
        return nullptr;
    }
    if (device.major < kOldestMajor || (device.major == kOldestMajor && device.minor < kOldestMinor)) {
        absence = std::string(device.name) + " is older than compute capability 7.5";
        return nullptr;
    }
    Driver driver;
    if (!driver.load()) {
        absence = "the CUDA driver lacks a needed function";
        return nullptr;
    }
    return std::make_unique<CudaGpuRuntime>(driver, describe(device));
}

}  // namespace oru
