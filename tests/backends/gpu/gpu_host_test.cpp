#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

#include "backends/gpu/host/host_gpu_runtime.hpp"

namespace oru {
namespace {

class HostGpu : public testing::Test {
protected:
    std::unique_ptr<GpuRuntime> gpu = makeHostGpuRuntime();
};

TEST_F(HostGpu, HasOneDeviceAndOneContext) {
    CUctx_st* current = nullptr;
    CUctx_st* created = nullptr;

    EXPECT_EQ(gpu->cudaSetDevice(0), 0);
    EXPECT_NE(gpu->cudaSetDevice(1), 0);
    EXPECT_EQ(gpu->cuCtxGetCurrent(&current), 0);
    EXPECT_EQ(gpu->cuCtxCreate_v2(&created, 2, 0), 0);
    EXPECT_NE(gpu->cuCtxCreate_v2(&created, 2, 3), 0);
    EXPECT_NE(gpu->cuCtxGetCurrent(nullptr), 0);

    EXPECT_NE(current, nullptr);
    EXPECT_EQ(created, current);
}

TEST_F(HostGpu, RefusesAStreamThatDoesNotLive) {
    CUstream_st* first = nullptr;
    CUstream_st* second = nullptr;
    ASSERT_EQ(gpu->cudaStreamCreate(&first), 0);
    ASSERT_EQ(gpu->cudaStreamCreate(&second), 0);
    EXPECT_NE(first, second);

    EXPECT_EQ(gpu->cudaStreamSynchronize(first), 0);
    EXPECT_EQ(gpu->cudaStreamSynchronize(nullptr), 0) << "the default stream";
    EXPECT_EQ(gpu->cudaStreamDestroy(first), 0);

    EXPECT_NE(gpu->cudaStreamDestroy(first), 0);
    EXPECT_NE(gpu->cudaStreamSynchronize(first), 0);
    EXPECT_NE(gpu->cudaStreamDestroy(nullptr), 0);
    EXPECT_NE(gpu->cudaStreamCreate(nullptr), 0);
    EXPECT_EQ(gpu->cudaStreamSynchronize(second), 0);
}

TEST_F(HostGpu, AlignsItsMemoryAndRefusesSizesThatNothingHas) {
    for (const std::size_t size : {std::size_t{1}, std::size_t{63}, std::size_t{4608000}}) {
        void* const host = gpu->hostAlloc(size);
        void* const device = gpu->deviceAlloc(size);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(host) % 64, 0U);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(device) % 256, 0U);
        std::memset(host, 1, size);
        std::memset(device, 2, size);
        gpu->hostFree(host);
        gpu->deviceFree(device);
    }
    EXPECT_EQ(gpu->hostAlloc(0), nullptr);
    EXPECT_EQ(gpu->deviceAlloc(SIZE_MAX), nullptr);
    gpu->hostFree(nullptr);
    gpu->deviceFree(nullptr);
}

TEST_F(HostGpu, CopiesBetweenMemoriesOfTheirOwn) {
    std::vector<unsigned char> in(1000);
    for (std::size_t i = 0; i < in.size(); ++i) {
        in[i] = static_cast<unsigned char>(i);
    }
    std::vector<unsigned char> out(in.size());
    void* const device = gpu->deviceAlloc(in.size());

    EXPECT_EQ(gpu->copyHostToDevice(device, in.data(), in.size()), 0);
    EXPECT_EQ(gpu->copyDeviceToHost(out.data(), device, out.size()), 0);
    EXPECT_EQ(gpu->copyHostToDevice(nullptr, nullptr, 0), 0);
    EXPECT_NE(gpu->copyHostToDevice(nullptr, in.data(), 1), 0);
    EXPECT_NE(gpu->copyDeviceToHost(out.data(), nullptr, 1), 0);

    EXPECT_EQ(out, in);
    gpu->deviceFree(device);
}

TEST_F(HostGpu, MakesStreamsFromManyThreads) {
    std::vector<std::thread> threads;
    std::vector<std::vector<CUstream_st*>> made(4);
    for (auto& list : made) {
        threads.emplace_back([&] {
            for (int i = 0; i < 50; ++i) {
                CUstream_st* stream = nullptr;
                EXPECT_EQ(gpu->cudaStreamCreate(&stream), 0);
                list.push_back(stream);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }

    std::set<CUstream_st*> all;
    for (const auto& list : made) {
        all.insert(list.begin(), list.end());
    }
    EXPECT_EQ(all.size(), 200U);
    for (CUstream_st* stream : all) {
        EXPECT_EQ(gpu->cudaStreamDestroy(stream), 0);
    }
}

}  // namespace
}  // namespace oru
