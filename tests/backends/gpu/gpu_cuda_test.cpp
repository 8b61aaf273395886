#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <vector>

#include "backends/gpu/cuda/cuda_gpu_runtime.hpp"

namespace oru {
namespace {

TEST(CudaGpuProbe, GivesADeviceOrSaysWhyThereIsNone) {
    std::string absence;
    const auto gpu = makeCudaGpuRuntime(absence);
    EXPECT_EQ(gpu == nullptr, !absence.empty()) << absence;
    EXPECT_TRUE(gpu == nullptr || gpu->description().find("compute capability") != std::string::npos);
}

TEST(CudaGpuProbe, SaysThatNoDriverIsInstalledExactlyWhereNoneCanBeLoaded) {
    std::string absence;
    (void)makeCudaGpuRuntime(absence);
    if (absence == "built without the CUDA toolkit") {
        GTEST_SKIP() << absence;
    }
    void* const driver = ::dlopen("libcuda.so.1", RTLD_LAZY | RTLD_LOCAL);
    EXPECT_EQ(absence == "no NVIDIA driver is installed", driver == nullptr) << absence;
    if (driver != nullptr) {
        ::dlclose(driver);
    }
}

class CudaGpu : public testing::Test {
protected:
    void SetUp() override {
        std::string absence;
        gpu = makeCudaGpuRuntime(absence);
        if (gpu == nullptr) {
            GTEST_SKIP() << absence;
        }
        ASSERT_EQ(gpu->cudaSetDevice(0), 0);
    }

    [[nodiscard]] CUctx_st* current() const {
        CUctx_st* context = nullptr;
        EXPECT_EQ(gpu->cuCtxGetCurrent(&context), 0);
        return context;
    }

    std::unique_ptr<GpuRuntime> gpu;
};

TEST_F(CudaGpu, CopiesThereAndBackInTheOrderOfAStream) {
    constexpr std::size_t kBytes = 1 << 20;
    CUstream_st* stream = nullptr;
    CUevent_st* event = nullptr;
    ASSERT_EQ(gpu->cudaStreamCreate(&stream), 0);
    ASSERT_EQ(gpu->cudaEventCreate(&event), 0);
    auto* const in = static_cast<unsigned char*>(gpu->hostAlloc(kBytes));
    auto* const out = static_cast<unsigned char*>(gpu->hostAlloc(kBytes));
    void* const device = gpu->deviceAlloc(kBytes);
    for (std::size_t i = 0; i < kBytes; ++i) {
        in[i] = static_cast<unsigned char>(i * 7);
        out[i] = 0;
    }

    EXPECT_EQ(gpu->copyHostToDeviceAsync(device, in, kBytes, stream), 0);
    EXPECT_EQ(gpu->copyDeviceToHostAsync(out, device, kBytes, stream), 0);
    EXPECT_EQ(gpu->cudaEventRecord(event, stream), 0);
    EXPECT_EQ(gpu->cudaEventSynchronize(event), 0);

    EXPECT_TRUE(std::equal(in, in + kBytes, out));
    gpu->deviceFree(device);
    gpu->hostFree(in);
    gpu->hostFree(out);
    EXPECT_EQ(gpu->cudaEventDestroy(event), 0);
    EXPECT_EQ(gpu->cudaStreamDestroy(stream), 0);
}

TEST_F(CudaGpu, WorksInAnApplicationsContextFromAnyThreadAndLeavesTheThreadsOwnAlone) {
    CUctx_st* const own = current();
    CUctx_st* application = nullptr;
    CUctx_st* popped = nullptr;
    ASSERT_EQ(gpu->cuCtxCreate_v2(&application, 0, 0), 0);
    ASSERT_EQ(gpu->cuCtxPopCurrent_v2(&popped), 0);
    ASSERT_EQ(popped, application);
    ASSERT_EQ(current(), own);

    void* device = nullptr;
    CUstream_st* stream = nullptr;
    std::thread([&] {
        EXPECT_EQ(gpu->cuCtxPushCurrent_v2(application), 0);
        device = gpu->deviceAlloc(64);
        EXPECT_EQ(gpu->cudaStreamCreate(&stream), 0);
        EXPECT_EQ(gpu->cuCtxPopCurrent_v2(&popped), 0);
        EXPECT_EQ(popped, application);
    }).join();

    const std::vector<unsigned char> in(64, 9);
    std::vector<unsigned char> out(64, 0);
    EXPECT_EQ(gpu->copyHostToDevice(device, in.data(), in.size()), 0);
    EXPECT_EQ(gpu->copyDeviceToHost(out.data(), device, out.size()), 0);
    EXPECT_EQ(out, in);
    gpu->deviceFree(device);
    EXPECT_EQ(gpu->cudaStreamDestroy(stream), 0);
    EXPECT_EQ(current(), own);
}

TEST_F(CudaGpu, RefusesMemoryThatNothingHasWithoutSpoilingTheNextCall) {
    EXPECT_EQ(gpu->deviceAlloc(0), nullptr);
    EXPECT_EQ(gpu->hostAlloc(0), nullptr);
    EXPECT_EQ(gpu->deviceAlloc(std::size_t{1} << 60), nullptr);
    gpu->deviceFree(nullptr);
    gpu->hostFree(nullptr);
    CUstream_st* stream = nullptr;
    EXPECT_EQ(gpu->cudaStreamCreate(&stream), 0);
    EXPECT_EQ(gpu->cudaStreamDestroy(stream), 0);
}

}  // namespace
}  // namespace oru
