#include <gtest/gtest.h>

#include <cmath>

#include "collaborators/kit_functions.hpp"

namespace oru {
namespace {

constexpr float kTolerance = 5.0F;

CameraParameters camera(float focal, float cx, float cy) {
    CameraParameters params;
    params.fx = focal;
    params.fy = focal;
    params.cx = cx;
    params.cy = cy;
    return params;
}

TEST(RectilinearFoV, IsTheAngleBetweenTheBorderRays) {
    Resolution size{1920, 1200};
    CameraParameters centred = camera(960, 960, 600);
    CameraParameters shifted = camera(960, 0, 0);

    ComputeRectilinearFoV(centred, size);
    ComputeRectilinearFoV(shifted, size);

    EXPECT_NEAR(centred.fov_h, 90.0F, 1e-4F);
    EXPECT_NEAR(centred.fov_v, 64.010766F, 1e-4F);
    EXPECT_NEAR(centred.fov_d, 99.404220F, 1e-4F);
    EXPECT_NEAR(shifted.fov_h, 63.434949F, 1e-4F);
    EXPECT_NEAR(shifted.fov_v, 51.340192F, 1e-4F);
    EXPECT_NEAR(shifted.fov_d, 67.023094F, 1e-4F);
}

TEST(FieldsOfView, AreZeroWithoutAFocalLength) {
    for (auto* compute : {+[](CameraParameters&params, Resolution&size) { ComputeRectilinearFoV(params, size); },
                          +[](CameraParameters&params, Resolution&size) { ComputeTVDistoFov(params, size, 5.0F); }}) {
        CameraParameters params = camera(0, 960, 600);
        params.fov_h = params.fov_v = params.fov_d = 7.0F;
        Resolution size{1920, 1200};

        compute(params, size);

        EXPECT_EQ(params.fov_h, 0.0F);
        EXPECT_EQ(params.fov_v, 0.0F);
        EXPECT_EQ(params.fov_d, 0.0F);
    }
}

TEST(DistortedFoV, FindsTheRayThatTheLensBendsToTheBorder) {
    // On the horizontal axis x' = x (1 + k1 x^2): the ray of 45 degrees lands at 1 + k1.
    for (const double k1 : {-0.2, -0.05, 0.0, 0.1, 0.3}) {
        const double half = 1000.0 * (1 + k1);
        CameraParameters params = camera(1000, static_cast<float>(half), 300);
        params.distortion[0] = k1;
        Resolution size{static_cast<uint64_t>(std::llround(2 * half)), 600};

        ComputeTVDistoFov(params, size, kTolerance);

        EXPECT_NEAR(params.fov_h, 90.0F, 0.01F) << k1;
    }
}

TEST(DistortedFoV, InvertsEveryTermOfTheLensModel) {
    // The left and upper borders lie on the principal point, so each span starts at the optical axis; the corner's
    // ray is the one that was put in.
    const double x = 0.7;
    const double y = 0.5;
    const double r2 = x * x + y * y;
    const std::array<double, 12> k = {0.21,  -0.11, 0.003, -0.002, 0.02,   0.15,
                                      -0.07, 0.01,  0.004, -0.001, -0.003, 0.002};
    const double radial =
        (1 + k[0] * r2 + k[1] * r2 * r2 + k[4] * r2 * r2 * r2) / (1 + k[5] * r2 + k[6] * r2 * r2 + k[7] * r2 * r2 * r2);
    const double bentX = x * radial + 2 * k[2] * x * y + k[3] * (r2 + 2 * x * x) + k[8] * r2 + k[9] * r2 * r2;
    const double bentY = y * radial + k[2] * (r2 + 2 * y * y) + 2 * k[3] * x * y + k[10] * r2 + k[11] * r2 * r2;
    CameraParameters params = camera(0, 0, 0);
    params.fx = static_cast<float>(1920 / bentX);
    params.fy = static_cast<float>(1200 / bentY);
    params.distortion = k;
    Resolution size{1920, 1200};

    ComputeTVDistoFov(params, size, kTolerance);

    EXPECT_NEAR(params.fov_d, std::atan(std::sqrt(r2)) * 57.29577951308232, 1e-3);
}

TEST(DistortedFoV, KeepsThePinholeValueWhereTheLensModelFoldsBack) {
    // x (1 - 0.5 x^2) never exceeds 0.5443: a border at 0.9 has no ray, one at 0.4 has.
    CameraParameters params = camera(1000, 900, 400);
    params.distortion[0] = -0.5;
    Resolution size{1800, 800};
    CameraParameters pinhole = params;
    ComputeRectilinearFoV(pinhole, size);

    ComputeTVDistoFov(params, size, kTolerance);

    EXPECT_EQ(params.fov_h, pinhole.fov_h);
    EXPECT_EQ(params.fov_d, pinhole.fov_d);
    EXPECT_GT(params.fov_v, pinhole.fov_v + 1.0F);
}

}  // namespace
}  // namespace oru
