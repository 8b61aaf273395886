#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <optional>

#include "backends/rectifier/images.hpp"
#include "backends/rectifier/reference/camera_views.hpp"
#include "doubles/GpuFactory.hpp"
#include "doubles/ObservedGpu.hpp"
#include "doubles/ScopedPlatform.hpp"

// What every rectifier promises; a test program includes it and names its subjects.

namespace oru {
namespace {

using namespace rectifier;

constexpr Size kSize{320, 200};
constexpr Resolution kResolution{320, 200};

/// A rectifier and what it works on. Where this build or machine lacks it, `makeGpu` answers null and says why.
struct Subject {
    const char* name;
    std::unique_ptr<GpuRuntime> (*makeGpu)(std::string& absence);
    std::unique_ptr<MonoRectifier> (*makeRectifier)(GpuRuntime& gpu);
};

inline std::string nameOf(const testing::TestParamInfo<Subject>& info) {
    return info.param.name;
}

/// The runtime of the subject, with a stream, as the process's platform.
class RectifierContract : public testing::TestWithParam<Subject> {
public:
    void SetUp() override {
        std::string absence;
        auto runtime = GetParam().makeGpu(absence);
        if (runtime == nullptr) {
            GTEST_SKIP() << absence;
        }
        gpu = std::make_shared<doubles::ObservedGpu>(std::move(runtime));
        platform.emplace(std::make_shared<doubles::GpuFactory>(gpu));
        ASSERT_EQ(gpu->cudaStreamCreate(&stream), 0);
        rectifier = GetParam().makeRectifier(*gpu);
        camera = cameraOf(testLenses()[2], kSize);
        frame = makeFrame(kSize);
    }

    void TearDown() override {
        if (gpu == nullptr) {
            return;
        }
        rectifier.reset();
        view = {};
        frame = {};
        EXPECT_EQ(gpu->cudaStreamDestroy(stream), 0);
        EXPECT_EQ(gpu->held(), 0U) << "memory or events were not given back";
        platform.reset();
    }

    static Mat makeFrame(Size size) {
        Mat mat;
        EXPECT_EQ(mat.alloc({static_cast<uint64_t>(size.width), static_cast<uint64_t>(size.height)}, U8_C2, CPU),
                  SUCCESS);
        auto* pixels = mat.getPtr<unsigned char>(CPU);
        for (int i = 0; i < size.width * size.height * 2; ++i) {
            pixels[i] = static_cast<unsigned char>(i % 2 == 0 ? 40 + i * 7 % 180 : 128);
        }
        mat.timestamp = 77;
        return mat;
    }

    std::vector<unsigned char> bytesOf(const Mat& mat, MEM memory) {
        std::vector<unsigned char> bytes(mat.getStepBytes(memory) * mat.getHeight());
        const auto* pixels = mat.getPtr<unsigned char>(memory);
        if (memory == CPU) {
            std::copy(pixels, pixels + bytes.size(), bytes.begin());
        } else {
            EXPECT_EQ(gpu->copyDeviceToHost(bytes.data(), pixels, bytes.size()), 0);
        }
        return bytes;
    }

    bool isBlack(const Mat& mat, MEM memory) {
        const std::vector<unsigned char> bytes = bytesOf(mat, memory);
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            const bool alpha = mat.getDataType() == U8_C4 && i % 4 == 3;
            if (bytes[i] != (alpha ? 255 : 0)) {
                return false;
            }
        }
        return !bytes.empty();
    }

    CameraParameters setUp(bool flipped = false) { return rectifier->setup(camera, stream, flipped); }
    void process() { rectifier->process(frame, stream); }
    int getView(VIEW kind, Resolution size, Mat& destination, MEM memory) {
        return rectifier->getView(kind, size, destination, memory, stream);
    }

    std::shared_ptr<doubles::ObservedGpu> gpu;  // of the process's default
    std::optional<doubles::ScopedPlatform> platform;
    CUstream_st* stream = nullptr;
    std::unique_ptr<MonoRectifier> rectifier;
    CameraParameters camera;
    Mat frame;
    Mat view;
};

TEST_P(RectifierContract, DeliversTheSameViewIntoHostAndDeviceMemory) {
    const CameraParameters rectified = setUp();
    EXPECT_EQ(rectified.fx, rectified.fy);
    EXPECT_EQ(rectified.distortion, (std::array<double, 12>{}));
    EXPECT_EQ(rectified.image_size, kResolution);
    process();
    Mat onDevice;
    Mat onBoth;
    ASSERT_EQ(getView(RECTIFIED, kResolution, view, CPU), VIEW_DRAWN);
    ASSERT_EQ(getView(RECTIFIED, kResolution, onDevice, GPU), VIEW_DRAWN);
    ASSERT_EQ(onBoth.alloc(kResolution, U8_C4, CPU), SUCCESS);
    ASSERT_EQ(getView(RECTIFIED, kResolution, onBoth, CPU_AND_GPU), VIEW_DRAWN);
    EXPECT_FALSE(isBlack(view, CPU));
    EXPECT_EQ(bytesOf(onDevice, GPU), bytesOf(view, CPU));
    EXPECT_EQ(bytesOf(onBoth, GPU), bytesOf(view, CPU));
    EXPECT_EQ(bytesOf(onBoth, CPU), bytesOf(view, CPU));
    EXPECT_EQ(view.timestamp, 77U);
}

TEST_P(RectifierContract, LeavesTheHostCopyAloneWhenOnlyTheDeviceIsAskedFor) {
    (void)setUp();
    process();
    ASSERT_EQ(view.alloc(kResolution, U8_C1, CPU_AND_GPU), SUCCESS);
    view.getPtr<unsigned char>(CPU)[5] = 3;
    ASSERT_EQ(getView(UNRECTIFIED_GRAY, kResolution, view, GPU), VIEW_DRAWN);
    EXPECT_EQ(view.getPtr<unsigned char>(CPU)[5], 3);
    EXPECT_EQ(bytesOf(view, GPU)[5], frame.getPtr<unsigned char>(CPU)[10]);
}

TEST_P(RectifierContract, TurnsEveryViewWhenFlipped) {
    for (const VIEW kind : {RECTIFIED_GRAY, UNRECTIFIED_GRAY}) {
        Mat turned;
        (void)setUp();
        process();
        ASSERT_EQ(getView(kind, kResolution, view, CPU), VIEW_DRAWN);
        (void)setUp(true);
        process();
        ASSERT_EQ(getView(kind, kResolution, turned, CPU), VIEW_DRAWN);
        std::vector<unsigned char> expected = bytesOf(view, CPU);
        std::reverse(expected.begin(), expected.end());
        const std::vector<unsigned char> actual = bytesOf(turned, CPU);
        for (std::size_t i = 0; i < expected.size(); ++i) {
            ASSERT_NEAR(actual[i], expected[i], 2) << kind << " " << i;
        }
    }
}

TEST_P(RectifierContract, FailsWithABlackViewWhenItHasNothingToShow) {
    struct Row {
        const char* what;
        std::function<void(RectifierContract&)> prepare;
        VIEW view;
        Resolution size;
        ViewResult result;
    };
    Mat otherSize = makeFrame({160, 100});
    Mat wrongType;
    ASSERT_EQ(wrongType.alloc(kResolution, U8_C1, CPU), SUCCESS);
    const auto setUp = [](RectifierContract& self) { (void)self.setUp(); };
    const std::vector<Row> rows{
        {"never set up", [](RectifierContract& self) { self.process(); }, RECTIFIED, kResolution, VIEW_OF_OTHER_SIZE},
        {"no frame", setUp, RECTIFIED, kResolution, VIEW_WITHOUT_FRAME},
        {"wrong type", [&](RectifierContract& self) { setUp(self), self.rectifier->process(wrongType, self.stream); },
         UNRECTIFIED, kResolution, VIEW_WITHOUT_FRAME},
        {"other size",
         [&](RectifierContract& self) { setUp(self), self.rectifier->process(otherSize, self.stream); },
         UNRECTIFIED_GRAY,
         {160, 100},
         VIEW_OF_OTHER_SIZE},
        {"too large",
         [&](RectifierContract& self) { setUp(self), self.process(); },
         RECTIFIED_GRAY,
         {321, 200},
         VIEW_NOT_SUPPORTED},
        {"freed",
         [&](RectifierContract& self) {
             setUp(self), self.process();
             self.rectifier->free();
             self.rectifier->free();
         },
         RECTIFIED, kResolution, VIEW_WITHOUT_FRAME},
        {"no lens",
         [](RectifierContract& self) {
             CameraParameters blind = self.camera;
             blind.fx = 0;
             (void)self.rectifier->setup(blind, self.stream, false);
             self.process();
         },
         RECTIFIED, kResolution, VIEW_WITHOUT_CAMERA},
    };
    for (const Row& row : rows) {
        rectifier = GetParam().makeRectifier(*gpu);
        row.prepare(*this);
        EXPECT_EQ(getView(row.view, row.size, view, CPU_AND_GPU), row.result) << row.what;
        EXPECT_TRUE(isBlack(view, CPU)) << row.what;
        EXPECT_TRUE(isBlack(view, GPU)) << row.what;
    }
}

TEST_P(RectifierContract, StillShowsThePlainViewWithoutALens) {
    camera.fx = 0;
    (void)setUp();
    process();
    ASSERT_EQ(getView(UNRECTIFIED_GRAY, kResolution, view, CPU), VIEW_DRAWN);
    EXPECT_EQ(view.getPtr<unsigned char>(CPU)[1], frame.getPtr<unsigned char>(CPU)[2]);
}

TEST_P(RectifierContract, TakesNoMemoryAfterTheFirstViewOfASize) {
    (void)setUp();
    Mat half;
    const auto drawAll = [&] {
        process();
        ASSERT_EQ(getView(RECTIFIED, kResolution, view, CPU), VIEW_DRAWN);
        ASSERT_EQ(getView(RECTIFIED, {160, 100}, half, CPU_AND_GPU), VIEW_DRAWN);
    };
    drawAll();
    const int before = gpu->allocations;
    drawAll();
    drawAll();
    EXPECT_EQ(gpu->allocations, before);
}

TEST_P(RectifierContract, ShowsTheNewFrameInEverySize) {
    (void)setUp();
    process();
    ASSERT_EQ(getView(UNRECTIFIED_GRAY, {160, 100}, view, CPU), VIEW_DRAWN);
    Mat bright = makeFrame(kSize);
    std::fill_n(bright.getPtr<unsigned char>(CPU), kSize.width * kSize.height * 2, static_cast<unsigned char>(200));
    rectifier->process(bright, stream);
    ASSERT_EQ(getView(UNRECTIFIED_GRAY, {160, 100}, view, CPU), VIEW_DRAWN);
    EXPECT_EQ(bytesOf(view, CPU), std::vector<unsigned char>(160 * 100, 200));
}

TEST_P(RectifierContract, ShowsTheProcessedMemoryWhereverItsContainerMoves) {
    (void)setUp();
    process();
    const std::vector<unsigned char> processed = bytesOf(frame, CPU);
    Mat other = makeFrame(kSize);
    std::swap(frame, other);  // as a camera does that takes the next frame into another buffer
    std::fill_n(frame.getPtr<unsigned char>(CPU), kSize.width * kSize.height * 2, static_cast<unsigned char>(200));
    frame.timestamp = 99;

    ASSERT_EQ(getView(UNRECTIFIED_GRAY, kResolution, view, CPU), VIEW_DRAWN);

    EXPECT_EQ(view.timestamp, 77U);
    for (std::size_t i = 0; i < processed.size() / 2; ++i) {
        ASSERT_EQ(view.getPtr<unsigned char>(CPU)[i], processed[2 * i]) << i;
    }
}

TEST_P(RectifierContract, GivesTheSameViewAfterManyOtherSizesTookItsPlace) {
    (void)setUp();
    process();
    ASSERT_EQ(getView(RECTIFIED, {160, 100}, view, CPU), VIEW_DRAWN);
    const std::vector<unsigned char> first = bytesOf(view, CPU);
    for (uint64_t width = 100; width < 107; ++width) {
        Mat other;
        ASSERT_EQ(getView(RECTIFIED, {width, 60}, other, CPU), VIEW_DRAWN);
    }
    ASSERT_EQ(getView(RECTIFIED, {160, 100}, view, CPU), VIEW_DRAWN);
    EXPECT_EQ(bytesOf(view, CPU), first);
}

}  // namespace
}  // namespace oru
