#include <gtest/gtest.h>

#include <cmath>
#ifdef ORU_HAS_CALIB3D
#include <opencv2/calib3d.hpp>
#endif

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

CameraModeDescription shortLens() {
    CameraModeDescription configuration;
    configuration.resolution = {1920, 1200};
    CameraParameters& raw = configuration.raw_calibration;
    raw.fx = 730.0F;
    raw.fy = 731.5F;
    raw.cx = 963.25F;
    raw.cy = 588.5F;
    raw.distortion = {0.42, 0.05, 0.001, -0.0008, 0.001, 0.75, 0.14, 0.006, 0.0012, -0.0002, -0.0009, 0.0003};
    CameraParameters& rectified = configuration.calibration;
    rectified.fx = rectified.fy = 700.0F;
    rectified.cx = 960.5F;
    rectified.cy = 590.0F;
    raw.image_size = rectified.image_size = configuration.resolution;
    return configuration;
}

TEST(InteropCalibration, PointsGoBothWaysAndThoseWithoutAnAnswerAreNotNumbers) {
    CameraModeDescription configuration = shortLens();
    const CameraGeometry geometry(configuration);
    const std::vector<cv::Point2f> rectified{{0, 0}, {960.5F, 590.0F}, {1800, 30}};

    const auto unrectified = interop::distortPoints(geometry, rectified);
    const auto back = interop::undistortPoints(geometry, unrectified);

    ASSERT_EQ(back.size(), rectified.size());
    for (std::size_t i = 0; i < back.size(); ++i) {
        const auto exact = geometry.distort({rectified[i].x, rectified[i].y});
        ASSERT_TRUE(exact.has_value());
        EXPECT_FLOAT_EQ(unrectified[i].x, static_cast<float>(exact->x));
        EXPECT_NEAR(back[i].x, rectified[i].x, 1e-3);
        EXPECT_NEAR(back[i].y, rectified[i].y, 1e-3);
    }
    configuration.raw_calibration.fx = 0;
    EXPECT_TRUE(std::isnan(interop::distortPoints(CameraGeometry(configuration), rectified)[0].x));
}

#ifdef ORU_HAS_CALIB3D
TEST(InteropCalibration, OpenCvProjectsWithTheMatrixAndTheCoefficientsToTheSamePixels) {
    const CameraModeDescription configuration = shortLens();
    const CameraGeometry geometry(configuration);
    const std::vector<cv::Point3d> points{{0.1, -0.2, 1}, {-1.1, 0.6, 1.5}, {2.0, 1.0, 2.5}};
    std::vector<cv::Point2d> pixels;

    cv::projectPoints(points, cv::Vec3d(), cv::Vec3d(), interop::cameraMatrix(configuration.raw_calibration),
                      interop::distCoeffs(configuration.raw_calibration), pixels);

    for (std::size_t i = 0; i < points.size(); ++i) {
        const auto ours = geometry.project(UNRECTIFIED, {points[i].x, points[i].y, points[i].z});
        ASSERT_TRUE(ours.has_value());
        EXPECT_NEAR(ours->x, pixels[i].x, 1e-6);
        EXPECT_NEAR(ours->y, pixels[i].y, 1e-6);
    }
}
#endif

}  // namespace
}  // namespace oru
