#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "doubles/ScopedPlatform.hpp"
#include "doubles/ScriptedFactory.hpp"
#include "doubles/TemporaryDirectory.hpp"
#include "logging/KoruLogger.hpp"
#include "oru_koruone/CameraOneImpl.hpp"

namespace {

std::atomic<long> allocations{0};

}  // namespace

// GCC inlines the releasing half into some callers, sees no allocating half there, and takes them for a mismatch.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

void* operator new(std::size_t size) {
    ++allocations;
    if (void* memory = std::malloc(size); memory != nullptr) {
        return memory;
    }
    throw std::bad_alloc();
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    ++allocations;
    const std::size_t step = static_cast<std::size_t>(alignment);
    if (void* memory = std::aligned_alloc(step, (size + step - 1) / step * step); memory != nullptr) {
        return memory;
    }
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}

namespace oru {
namespace {

class HotPath : public ::testing::Test {
protected:
    HotPath() {
        directory.write("SN30010001.conf",
                        "[MISC]\nSensor_ID=1\n[CAM_fhd1200]\nfx=1000\nfy=1000\ncx=960\ncy=600\n[DISTO]\nk1=0\n");
        InitParametersOne parameters;
        parameters.settings_path = directory.prefix().c_str();
        opened = camera.open(parameters);
    }
    ~HotPath() override { (void)camera.close(); }
    void SetUp() override { ASSERT_EQ(opened, SUCCESS); }

    template <class Operation>
    [[nodiscard]] static long allocationsOf(int rounds, Operation operation) {
        for (int i = 0; i < 20; ++i) {
            operation();
        }
        const long before = allocations;
        for (int i = 0; i < rounds; ++i) {
            operation();
        }
        return allocations - before;
    }

private:
    doubles::TemporaryDirectory directory;
    std::shared_ptr<doubles::ScriptedFactory> factory = doubles::makeQuietFactory();
    doubles::ScopedPlatform platform{factory};
    ERROR_CODE opened = FAILURE;

protected:
    CameraOneImpl camera{factory};
};

TEST_F(HotPath, GrabAllocatesOnlyTheListOfSamples) {
    EXPECT_LE(allocationsOf(1000, [&] { ASSERT_EQ(camera.grab(), SUCCESS); }), 1000);
}

TEST_F(HotPath, RetrievingTheSameViewAllocatesNothing) {
    Mat view;
    EXPECT_EQ(allocationsOf(1000, [&] { ASSERT_EQ(camera.retrieveImage(view, RECTIFIED, CPU, {}), SUCCESS); }), 0);
}

TEST_F(HotPath, SensorsAllocateOnlyTheTemperatures) {
    ASSERT_EQ(camera.grab(), SUCCESS);
    SensorsData data;
    for (const TIME_REFERENCE reference : {IMAGE, CURRENT}) {
        const long count = allocationsOf(1000, [&] { ASSERT_EQ(camera.getSensorsData(data, reference), SUCCESS); });
        EXPECT_LE(count, 1000 * static_cast<long>(data.temperature.temperature_map.size()));
    }
}

}  // namespace
}  // namespace oru
