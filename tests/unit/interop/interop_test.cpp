#include <gtest/gtest.h>

#include "doubles/ScopedPlatform.hpp"
#include "doubles/ScriptedFactory.hpp"
#include "oru/interop/opencv.hpp"
#include "oru/interop/opencv_cuda.hpp"

namespace oru {
namespace {

class Interop : public testing::Test {
protected:
    doubles::ScopedPlatform platform{std::make_shared<doubles::ScriptedFactory>()};
    Mat image;
};

TEST_F(Interop, CvMatSharesTheHostPixelsOfEveryType) {
    for (const auto& [type, channels] : {std::pair{U8_C1, 1}, std::pair{U8_C2, 2}, std::pair{U8_C4, 4}}) {
        ASSERT_EQ(image.alloc({7, 5}, type, CPU_AND_GPU), SUCCESS);

        cv::Mat shared = interop::asCvMat(image);
        shared.row(4).setTo(cv::Scalar::all(200));

        EXPECT_EQ(shared.size(), cv::Size(7, 5));
        EXPECT_EQ(shared.depth(), CV_8U);
        EXPECT_EQ(shared.channels(), channels);
        EXPECT_EQ(shared.step, image.getStepBytes(CPU));
        EXPECT_EQ(shared.data, image.getPtr<unsigned char>(CPU));
        EXPECT_EQ(image.getPtr<unsigned char>(CPU)[4 * image.getStepBytes(CPU)], 200);
        EXPECT_EQ(image.getPtr<unsigned char>(GPU)[4 * image.getStepBytes(GPU)], 0);
    }
}

TEST_F(Interop, GpuMatSharesTheDevicePixels) {
    ASSERT_EQ(image.alloc({7, 5}, U8_C4, GPU), SUCCESS);

    const cv::cuda::GpuMat shared = interop::asGpuMat(image);

    EXPECT_EQ(shared.size(), cv::Size(7, 5));
    EXPECT_EQ(shared.type(), CV_8UC4);
    EXPECT_EQ(shared.step, image.getStepBytes(GPU));
    EXPECT_EQ(shared.data, image.getPtr<unsigned char>(GPU));
}

TEST_F(Interop, MemoryThatIsNotHeldGivesAnEmptyImage) {
    EXPECT_TRUE(interop::asCvMat(image).empty());
    EXPECT_TRUE(interop::asGpuMat(image).empty());
    ASSERT_EQ(image.alloc({7, 5}, U8_C1, CPU), SUCCESS);
    EXPECT_TRUE(interop::asGpuMat(image).empty());
    image.free(CPU);
    ASSERT_EQ(image.alloc({7, 5}, U8_C1, GPU), SUCCESS);
    EXPECT_TRUE(interop::asCvMat(image).empty());
}

TEST_F(Interop, WrappersThatEndLeaveThePixelsToTheContainer) {
    ASSERT_EQ(image.alloc({7, 5}, U8_C1, CPU), SUCCESS);
    {
        const cv::Mat shared = interop::asCvMat(image);
        const cv::Mat copy = shared;
    }
    image.getPtr<unsigned char>(CPU)[34] = 1;
    EXPECT_EQ(image.getPtr<unsigned char>(CPU)[34], 1);
}

}  // namespace
}  // namespace oru
