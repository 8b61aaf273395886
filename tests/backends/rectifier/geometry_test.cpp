#include <gtest/gtest.h>

#include "backends/rectifier/geometry/ViewMap.hpp"
#include "backends/rectifier/images.hpp"
#include "backends/rectifier/reference/camera_views.hpp"

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

/// As a rectifier sets itself up: its pinhole is that of the single precision in which it tells it.
ViewGeometry setUpGeometry(const CameraParameters& raw, bool flipped) {
    CameraViews views;
    (void)views.setUp(raw, flipped);
    return views.geometry();
}

/// As the camera describes itself, with the principal point of a flipped image counted from the other border.
CameraModeDescription describe(const CameraParameters& raw, const ViewGeometry& geometry, bool flipped) {
    CameraModeDescription configuration;
    configuration.resolution = raw.image_size;
    configuration.raw_calibration = raw;
    configuration.calibration = raw;
    configuration.calibration.distortion = {};
    configuration.calibration.fx = static_cast<float>(geometry.rectified.fx);
    configuration.calibration.fy = static_cast<float>(geometry.rectified.fy);
    configuration.calibration.cx = static_cast<float>(geometry.rectified.cx);
    configuration.calibration.cy = static_cast<float>(geometry.rectified.cy);
    for (CameraParameters* camera : {&configuration.calibration, &configuration.raw_calibration}) {
        if (flipped) {
            camera->cx = static_cast<float>(raw.image_size.width) - camera->cx;
            camera->cy = static_cast<float>(raw.image_size.height) - camera->cy;
        }
    }
    return configuration;
}

TEST(CameraGeometry, AgreesWithTheMapsOfTheViewsAtEverySizeAndFlip) {
    constexpr double kExact = 1e-6;
    for (const NamedLens& named : testLenses()) {
        const CameraParameters raw = cameraOf(named, kSize);
        for (const bool flipped : {false, true}) {
            const ViewGeometry geometry = setUpGeometry(raw, flipped);
            const CameraModeDescription configuration = describe(raw, geometry, flipped);
            for (const Size view : {kSize, Size{960, 600}, Size{641, 333}}) {
                SCOPED_TRACE(named.name + std::string(flipped ? ", flipped, " : ", ") + std::to_string(view.width));
                const ViewMap map(geometry.lens, geometry.rectified, kSize, view, flipped);
                const CameraGeometry camera(
                    configuration, {static_cast<uint64_t>(view.width), static_cast<uint64_t>(view.height)}, flipped);
                for (int v = 0; v < view.height; v += 83) {
                    for (int u = 0; u < view.width; u += 97) {
                        const Point pixel{static_cast<double>(u), static_cast<double>(v)};
                        const Point source = map.at(u, v);
                        const Point shown =
                            flipped ? Point{view.width - 1 - source.x, view.height - 1 - source.y} : source;
                        const auto distorted = camera.distort(pixel);
                        ASSERT_TRUE(distorted.has_value());
                        ASSERT_NEAR(distorted->x, shown.x, kExact);
                        ASSERT_NEAR(distorted->y, shown.y, kExact);
                        const auto back = camera.undistort(shown);
                        ASSERT_TRUE(back.has_value());
                        ASSERT_NEAR(back->x, u, kExact);
                        ASSERT_NEAR(back->y, v, kExact);
                        const auto ray = camera.unproject(RECTIFIED_GRAY, pixel);
                        ASSERT_TRUE(ray.has_value());
                        const auto again = camera.project(UNRECTIFIED_GRAY, {2 * ray->x, 2 * ray->y, 2});
                        ASSERT_TRUE(again.has_value());
                        ASSERT_NEAR(again->x, shown.x, kExact);
                        ASSERT_NEAR(again->y, shown.y, kExact);
                    }
                }
            }
        }
    }
}

TEST(CameraGeometry, HasNoAnswerBehindTheCameraBeyondAFoldAndWithoutALens) {
    const CameraParameters raw = cameraOf({"folding", 0.4, {-0.6}, 0, 0}, kSize);
    const CameraModeDescription configuration = describe(raw, setUpGeometry(raw, false), false);
    const CameraGeometry camera(configuration);
    EXPECT_FALSE(camera.project(RECTIFIED, {0.1, 0.1, -1}).has_value());
    EXPECT_FALSE(camera.project(RECTIFIED, {0.1, 0.1, 0}).has_value());
    EXPECT_TRUE(camera.project(UNRECTIFIED, {0.3, 0.1, 1}).has_value());
    EXPECT_FALSE(camera.project(UNRECTIFIED, {3, 1, 1}).has_value());
    EXPECT_FALSE(camera.undistort({-900, -900}).has_value()) << "no ray lands there";
    EXPECT_FALSE(CameraGeometry({}).project(RECTIFIED, {0, 0, 1}).has_value());
}

TEST(CameraGeometry, TakesACalibrationThatWasRescaledForASmallerSize) {
    const CameraParameters raw = cameraOf(testLenses()[4], kSize);
    const CameraModeDescription own = describe(raw, setUpGeometry(raw, false), false);
    CameraModeDescription half = own;
    for (CameraParameters* camera : {&half.calibration, &half.raw_calibration}) {
        camera->fx /= 2;
        camera->fy /= 2;
        camera->cx /= 2;
        camera->cy /= 2;
        camera->image_size = {960, 600};
    }
    const auto exact = CameraGeometry(own, {960, 600}).distort({100, 50});
    const auto rounded = CameraGeometry(half, {960, 600}).distort({100, 50});
    ASSERT_TRUE(exact && rounded);
    EXPECT_NEAR(rounded->x, exact->x, 1e-3);
    EXPECT_NEAR(rounded->y, exact->y, 1e-3);
}

}  // namespace
}  // namespace oru::rectifier
