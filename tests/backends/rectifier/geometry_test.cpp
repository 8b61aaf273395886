#include <gtest/gtest.h>

#include "backends/rectifier/geometry/ViewMap.hpp"
#include "backends/rectifier/images.hpp"

namespace oru::rectifier {
namespace {

constexpr Size kSize{1920, 1200};

double worstDistanceOutside(const ViewGeometry& geometry) {
    const ViewMap map(geometry.lens, geometry.rectified, geometry.source, geometry.source, geometry.flipped);
    double worst = 0;
    for (int v = 0; v < geometry.source.height; v += v % 7 == 0 ? 1 : 3) {
        for (int u = 0; u < geometry.source.width; ++u) {
            const Point position = map.at(u, v);
            worst = std::max({worst, -position.x, -position.y, position.x - (geometry.source.width - 1),
                              position.y - (geometry.source.height - 1)});
        }
    }
    return worst;
}

TEST(RectifiedCamera, ShowsNoEmptyBorderAndNothingWiderWould) {
    for (const NamedLens& named : testLenses()) {
        ViewGeometry geometry = geometryOf(cameraOf(named, kSize), false);
        ASSERT_GT(geometry.rectified.fx, 0) << named.name;
        EXPECT_EQ(geometry.rectified.fx, geometry.rectified.fy) << named.name;
        EXPECT_LT(worstDistanceOutside(geometry), 0.05) << named.name;
        geometry.rectified.fx = geometry.rectified.fy = geometry.rectified.fx * 0.99;
        EXPECT_GT(worstDistanceOutside(geometry), 1.0) << named.name;
    }
}

TEST(RectifiedCamera, KeepsALensWithoutDistortionAsItIs) {
    CameraParameters camera = cameraOf(testLenses()[0], kSize);
    camera.fy = camera.fx;
    camera.cx = 903.5F;
    const ViewGeometry geometry = geometryOf(camera, false);
    EXPECT_NEAR(geometry.rectified.fx, camera.fx, 1e-3);
    EXPECT_NEAR(geometry.rectified.cx, camera.cx, 1e-3);
    EXPECT_NEAR(geometry.rectified.cy, camera.cy, 1e-3);
}

TEST(RectifiedCamera, StopsBeforeALensThatBendsBackOnItself) {
    CameraParameters camera = cameraOf({"folding", 0.4, {-0.6}, 0, 0}, kSize);
    const ViewGeometry geometry = geometryOf(camera, false);
    ASSERT_GT(geometry.rectified.fx, 0);
    const double cornerX = kSize.width / 2.0 / geometry.rectified.fx;
    const double cornerY = kSize.height / 2.0 / geometry.rectified.fy;
    EXPECT_LT(cornerX * cornerX + cornerY * cornerY, 1 / (3 * 0.6) + 1e-3);  // where r (1 + k1 r^2) turns
}

TEST(RectifiedCamera, RefusesALensThatSeesNothingInItsMiddle) {
    CameraParameters camera = cameraOf(testLenses()[0], kSize);
    camera.cx = -5000;
    EXPECT_EQ(geometryOf(camera, false).rectified.fx, 0);
}

TEST(ViewMap, TurnsAFlippedViewAboutItsMiddleAtEverySize) {
    const CameraParameters camera = cameraOf(testLenses()[4], kSize);
    for (const Size view : {kSize, Size{960, 600}, Size{641, 333}}) {
        const ViewGeometry geometry = geometryOf(camera, false);
        const ViewMap upright(geometry.lens, geometry.rectified, kSize, view, false);
        const ViewMap flipped(geometry.lens, geometry.rectified, kSize, view, true);
        for (const auto& [u, v] : {std::pair{0, 0}, {17, 230}, {640, 332}}) {
            const Point one = upright.at(u, v);
            const Point other = flipped.at(view.width - 1 - u, view.height - 1 - v);
            EXPECT_NEAR(one.x, other.x, 1e-9);
            EXPECT_NEAR(one.y, other.y, 1e-9);
        }
    }
}

TEST(ViewMap, SmallerViewSeesTheSamePlaceOfTheCameraImage) {
    const ViewGeometry geometry = geometryOf(cameraOf(testLenses()[2], kSize), false);
    const ViewMap full(geometry.lens, geometry.rectified, kSize, kSize, false);
    const ViewMap half(geometry.lens, geometry.rectified, kSize, {960, 600}, false);
    const Point fullPosition = full.at(500.5, 300.5);
    const Point halfPosition = half.at(250, 150);
    EXPECT_NEAR((halfPosition.x + 0.5) * 2, fullPosition.x + 0.5, 1e-9);
    EXPECT_NEAR((halfPosition.y + 0.5) * 2, fullPosition.y + 0.5, 1e-9);
}

}  // namespace
}  // namespace oru::rectifier
