#include "oru/Mat.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "doubles/ObservedGpu.hpp"
#include "doubles/ScopedPlatform.hpp"
#include "doubles/ScriptedFactory.hpp"

namespace oru {
namespace {

using doubles::ObservedGpu;
using doubles::ScopedPlatform;
using doubles::ScriptedFactory;

/// A platform that gives a Mat its memory.
struct Platform {
    Platform() { factory->otherGpu = memory; }

    std::shared_ptr<ObservedGpu> memory = std::make_shared<ObservedGpu>();
    std::shared_ptr<ScriptedFactory> factory = std::make_shared<ScriptedFactory>();
};

class MatTest : public testing::Test {
protected:
    ~MatTest() override { EXPECT_EQ(memory.wrongFrees, 0); }

    Platform platform;
    ScopedPlatform scope{platform.factory};
    ObservedGpu& memory = *platform.memory;
    Mat mat;
};

TEST_F(MatTest, HoldsRowsWithoutPaddingInTheMemoriesAskedFor) {
    const struct {
        MAT_TYPE type;
        std::size_t pixelBytes;
    } types[] = {{U8_C1, 1}, {U8_C2, 2}, {U8_C4, 4}};
    for (const auto& [type, pixelBytes] : types) {
        ASSERT_EQ(mat.alloc({33, 7}, type, CPU_AND_GPU), SUCCESS);

        EXPECT_EQ(mat.getStepBytes(CPU), 33 * pixelBytes);
        EXPECT_EQ(mat.getStepBytes(GPU), 33 * pixelBytes);
        EXPECT_EQ(mat.getStepBytes(CPU_AND_GPU), 33 * pixelBytes);
        EXPECT_EQ(mat.getWidth(), 33U);
        EXPECT_EQ(mat.getHeight(), 7U);
        EXPECT_EQ(mat.getDataType(), type);
        EXPECT_EQ(mat.getMemoryType(), CPU_AND_GPU);
        EXPECT_EQ(memory.host.at(mat.getPtr<void>(CPU)), 33 * 7 * pixelBytes);
        EXPECT_EQ(memory.device.at(mat.getPtr<void>(GPU)), 33 * 7 * pixelBytes);
        EXPECT_EQ(mat.getPtr<void>(CPU_AND_GPU), nullptr);
        EXPECT_EQ(memory.host.size() + memory.device.size(), 2U) << "the former memory went back";
    }
}

TEST_F(MatTest, GetsAMissingMemoryAddedAndKeepsWhatFits) {
    ASSERT_EQ(mat.alloc({8, 4}, U8_C4, CPU), SUCCESS);
    auto* const pixels = mat.getPtr<unsigned char>(CPU);
    std::memset(pixels, 0x5A, 8 * 4 * 4);
    EXPECT_EQ(mat.getPtr<void>(GPU), nullptr);
    EXPECT_EQ(mat.getStepBytes(GPU), 0U);

    ASSERT_EQ(mat.alloc({8, 4}, U8_C4, GPU), SUCCESS);
    ASSERT_EQ(mat.alloc({8, 4}, U8_C4, CPU), SUCCESS);

    EXPECT_EQ(mat.getPtr<unsigned char>(CPU), pixels);
    EXPECT_EQ(pixels[127], 0x5A);
    EXPECT_NE(mat.getPtr<void>(GPU), nullptr);
    EXPECT_EQ(mat.getMemoryType(), CPU_AND_GPU);
}

TEST_F(MatTest, ReplacesEveryMemoryForAnotherSizeOrType) {
    ASSERT_EQ(mat.alloc({8, 4}, U8_C4, CPU_AND_GPU), SUCCESS);

    ASSERT_EQ(mat.alloc({8, 4}, U8_C1, CPU), SUCCESS);
    EXPECT_EQ(mat.getMemoryType(), CPU);
    ASSERT_EQ(mat.alloc({4, 8}, U8_C1, GPU), SUCCESS);
    EXPECT_EQ(mat.getMemoryType(), GPU);

    EXPECT_TRUE(memory.host.empty());
    EXPECT_EQ(memory.device.size(), 1U);
}

TEST_F(MatTest, RefusesWhatNoImageIs) {
    ASSERT_EQ(mat.alloc({8, 4}, U8_C4, CPU), SUCCESS);
    const auto none = static_cast<MEM>(0);
    const auto unknown = static_cast<MEM>(5);

    EXPECT_EQ(mat.alloc({0, 4}, U8_C4, CPU), INVALID_PARAMETER);
    EXPECT_EQ(mat.alloc({8, 0}, U8_C4, CPU), INVALID_PARAMETER);
    EXPECT_EQ(mat.alloc({8, 4}, static_cast<MAT_TYPE>(6), CPU), INVALID_PARAMETER);
    EXPECT_EQ(mat.alloc({8, 4}, U8_C4, none), INVALID_PARAMETER);
    EXPECT_EQ(mat.alloc({8, 4}, U8_C4, unknown), INVALID_PARAMETER);

    EXPECT_EQ(mat.getWidth(), 8U) << "a refusal changes nothing";
}

TEST_F(MatTest, FailsWhenNoMemoryCanHoldTheImage) {
    const uint64_t huge = uint64_t{1} << 33;
    for (const Resolution& size : {Resolution{huge, huge}, Resolution{UINT64_MAX, 1}, Resolution{1, UINT64_MAX},
                                   Resolution{huge, huge / 2 + 1}, Resolution{uint64_t{1} << 20, uint64_t{1} << 20}}) {
        EXPECT_EQ(mat.alloc(size, U8_C4, CPU), FAILURE) << size.width << " x " << size.height;
        EXPECT_EQ(mat.getMemoryType(), 0);
        EXPECT_EQ(mat.getWidth(), 0U);
    }
}

TEST_F(MatTest, KeepsTheMemoryThatItGotWhenTheOtherFails) {
    memory.deviceLimit = 10;

    EXPECT_EQ(mat.alloc({8, 4}, U8_C4, CPU_AND_GPU), FAILURE);
    EXPECT_EQ(mat.getMemoryType(), CPU);
    memory.deviceLimit = 1000;
    EXPECT_EQ(mat.alloc({8, 4}, U8_C4, CPU_AND_GPU), SUCCESS);
    EXPECT_EQ(mat.getMemoryType(), CPU_AND_GPU);
}

TEST_F(MatTest, FreesEachMemoryByItselfAndIsEmptyAfterTheLast) {
    ASSERT_EQ(mat.alloc({8, 4}, U8_C4, CPU_AND_GPU), SUCCESS);
    mat.timestamp = 5;

    mat.free(CPU);
    EXPECT_EQ(mat.getMemoryType(), GPU);
    EXPECT_EQ(mat.getWidth(), 8U);
    mat.free(CPU_AND_GPU);
    mat.free(CPU_AND_GPU);

    EXPECT_EQ(mat.getWidth(), 0U);
    EXPECT_EQ(mat.getHeight(), 0U);
    EXPECT_EQ(mat.timestamp, 5U);
    EXPECT_TRUE(memory.host.empty() && memory.device.empty());
}

TEST_F(MatTest, MovesItsMemory) {
    ASSERT_EQ(mat.alloc({8, 4}, U8_C4, CPU), SUCCESS);
    mat.timestamp = 9;
    auto* const pixels = mat.getPtr<unsigned char>(CPU);

    Mat taken(std::move(mat));
    Mat assigned;
    ASSERT_EQ(assigned.alloc({2, 2}, U8_C1, GPU), SUCCESS);
    assigned = std::move(taken);

    EXPECT_EQ(assigned.getPtr<unsigned char>(CPU), pixels);
    EXPECT_EQ(assigned.timestamp, 9U);
    EXPECT_EQ(assigned.getMemoryType(), CPU);
    EXPECT_TRUE(memory.device.empty());
    EXPECT_EQ(taken.getMemoryType(), 0);
    EXPECT_EQ(taken.alloc({2, 2}, U8_C1, CPU), SUCCESS);
}

TEST_F(MatTest, CopiesWithMemoryOfItsOwnAndReusesTheTargets) {
    ASSERT_EQ(mat.alloc({8, 4}, U8_C4, CPU_AND_GPU), SUCCESS);
    std::memset(mat.getPtr<void>(CPU), 0x11, 128);
    std::memset(mat.getPtr<void>(GPU), 0x22, 128);
    mat.timestamp = 77;

    Mat copy = mat.clone();
    ASSERT_EQ(copy.getMemoryType(), CPU_AND_GPU);
    std::memset(mat.getPtr<void>(CPU), 0x33, 128);
    auto* const pixels = copy.getPtr<unsigned char>(CPU);
    EXPECT_EQ(pixels[127], 0x11);
    EXPECT_EQ(copy.getPtr<unsigned char>(GPU)[127], 0x22);
    EXPECT_EQ(copy.timestamp, 77U);

    EXPECT_EQ(mat.copyTo(copy), SUCCESS);
    EXPECT_EQ(copy.getPtr<unsigned char>(CPU), pixels);
    EXPECT_EQ(pixels[0], 0x33);
    EXPECT_EQ(mat.copyTo(mat), INVALID_CALL);
    EXPECT_EQ(Mat().copyTo(copy), INVALID_CALL);
    memory.hostLimit = 100;
    EXPECT_TRUE(mat.clone().isEmpty());
    memory.hostLimit = 128;
    memory.refusesUploads = true;
    EXPECT_TRUE(mat.clone().isEmpty());
}

TEST_F(MatTest, UploadsAndDownloadsIntoMemoryThatItTakesWhereItIsMissing) {
    EXPECT_EQ(mat.upload(), INVALID_CALL);
    EXPECT_EQ(mat.download(), INVALID_CALL);
    ASSERT_EQ(mat.alloc({4, 2}, U8_C2, CPU), SUCCESS);
    std::memset(mat.getPtr<void>(CPU), 0x44, 16);

    ASSERT_EQ(mat.upload(), SUCCESS);
    EXPECT_EQ(mat.getPtr<unsigned char>(GPU)[15], 0x44);
    std::memset(mat.getPtr<void>(GPU), 0x55, 16);
    mat.free(CPU);
    ASSERT_EQ(mat.download(), SUCCESS);

    EXPECT_EQ(mat.getPtr<unsigned char>(CPU)[15], 0x55);
    mat.free(GPU);
    memory.deviceLimit = 0;
    EXPECT_EQ(mat.upload(), FAILURE);
    EXPECT_EQ(mat.getMemoryType(), CPU);
}

TEST_F(MatTest, WrapsTheApplicationsMemoryAndNeverReplacesIt) {
    std::array<unsigned char, 64> pixels{};
    Mat wrapped = Mat::wrap(pixels.data(), {4, 4}, U8_C4);

    EXPECT_EQ(wrapped.getPtr<unsigned char>(CPU), pixels.data());
    EXPECT_EQ(wrapped.getStepBytes(CPU), 16U);
    EXPECT_EQ(wrapped.getChannels(), 4U);
    EXPECT_EQ(wrapped.alloc({4, 4}, U8_C4, CPU), SUCCESS);
    EXPECT_EQ(wrapped.alloc({4, 4}, U8_C1, CPU), INVALID_PARAMETER);
    EXPECT_EQ(wrapped.alloc({2, 4}, U8_C4, CPU), INVALID_PARAMETER);
    ASSERT_EQ(mat.alloc({4, 4}, U8_C4, CPU), SUCCESS);
    std::memset(mat.getPtr<void>(CPU), 0x66, 64);
    EXPECT_EQ(mat.copyTo(wrapped), SUCCESS);
    EXPECT_EQ(pixels[63], 0x66);

    EXPECT_EQ(wrapped.upload(), SUCCESS) << "a memory of the container's own beside it";
    const Mat moved = std::move(wrapped);
    EXPECT_EQ(moved.getPtr<unsigned char>(CPU), pixels.data());
    EXPECT_EQ(wrapped.alloc({2, 2}, U8_C1, CPU), SUCCESS) << "nothing of the application's is left in it";
    EXPECT_TRUE(Mat::wrap(nullptr, {4, 4}, U8_C4).isEmpty());
    EXPECT_TRUE(Mat::wrap(pixels.data(), {0, 4}, U8_C4).isEmpty());
    EXPECT_TRUE(Mat::wrap(pixels.data(), {4, 4}, U8_C4, CPU_AND_GPU).isEmpty());
}

TEST(Mat, GivesItsMemoryBackToThePlatformItCameFrom) {
    Platform first;
    const std::weak_ptr<ScriptedFactory> watch = first.factory;
    Mat mat;
    {
        const ScopedPlatform scope(first.factory);
        ASSERT_EQ(mat.alloc({8, 4}, U8_C4, CPU), SUCCESS);
    }
    first.factory.reset();
    ASSERT_FALSE(watch.expired()) << "the image keeps its platform";

    const Platform second;
    const ScopedPlatform scope(second.factory);
    ASSERT_EQ(mat.alloc({8, 4}, U8_C4, GPU), SUCCESS);
    EXPECT_EQ(first.memory->device.size(), 1U) << "both memories on one platform";
    mat.free(CPU_AND_GPU);

    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(second.memory->wrongFrees, 0);
}

TEST(Mat, FailsWithoutAPlatform) {
    const ScopedPlatform scope(nullptr);
    Mat mat;

    EXPECT_EQ(mat.alloc({8, 4}, U8_C4, CPU), FAILURE);
    EXPECT_EQ(mat.getMemoryType(), 0);
}

}  // namespace
}  // namespace oru
