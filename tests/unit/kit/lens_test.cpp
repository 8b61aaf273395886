#include "oru/Lens.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "oru/calibration.hpp"

namespace oru {
namespace {

constexpr Lens kEveryTerm{1010,
                          1005,
                          951.25,
                          607.5,
                          {-0.31, 0.12, 0.0013, -0.0007, 0.021, 0.27, -0.05, 0.013, 0.0021, -0.0004, -0.0017, 0.0006}};

TEST(Lens, ProjectsAsThePublicModelDoes) {
    // Computed by cv::projectPoints with the same numbers.
    const std::vector<std::pair<Point, Point>> expected{{{0.5, -0.25}, {1379.088532712, 394.773216476}},
                                                        {{-0.8, 0.6}, {405.530083114, 1015.718499854}},
                                                        {{0.02, 0.4}, {969.968907807, 975.669030613}}};
    for (const auto& [ray, pixel] : expected) {
        const Point projected = kEveryTerm.project(ray);
        EXPECT_NEAR(projected.x, pixel.x, 1e-6);
        EXPECT_NEAR(projected.y, pixel.y, 1e-6);
    }
}

TEST(Lens, FollowsTheDocumentedModelTermByTerm) {
    struct Case {
        std::size_t coefficient;
        Point expected;
    };
    // Direction (0.5, 0.25): r^2 = 0.3125, r^4 = 0.09765625, r^6 = 0.030517578125; every coefficient 0.1 alone.
    const Case cases[] = {
        {0, {0.5 * 1.03125, 0.25 * 1.03125}},
        {1, {0.5 * 1.009765625, 0.25 * 1.009765625}},
        {2, {0.5 + 0.025, 0.25 + 0.1 * (0.3125 + 0.125)}},
        {3, {0.5 + 0.1 * (0.3125 + 0.5), 0.25 + 0.025}},
        {4, {0.5 * 1.0030517578125, 0.25 * 1.0030517578125}},
        {5, {0.5 / 1.03125, 0.25 / 1.03125}},
        {6, {0.5 / 1.009765625, 0.25 / 1.009765625}},
        {7, {0.5 / 1.0030517578125, 0.25 / 1.0030517578125}},
        {8, {0.53125, 0.25}},
        {9, {0.509765625, 0.25}},
        {10, {0.5, 0.28125}},
        {11, {0.5, 0.259765625}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.coefficient);
        Lens lens{1.0, 1.0, 0.0, 0.0, {}};
        lens.distortion[c.coefficient] = 0.1;

        const Point point = lens.distort({0.5, 0.25});

        EXPECT_NEAR(point.x, c.expected.x, 1e-12);
        EXPECT_NEAR(point.y, c.expected.y, 1e-12);
    }
}

TEST(Lens, IsUnusableWithoutPositiveFocalLengthOrWithNumbersThatAreNotFinite) {
    Lens noFocalLength = kEveryTerm;
    noFocalLength.fx = 0;
    Lens noCentre = kEveryTerm;
    noCentre.cy = std::numeric_limits<double>::quiet_NaN();
    Lens endless = kEveryTerm;
    endless.distortion[11] = std::numeric_limits<double>::infinity();

    EXPECT_TRUE(kEveryTerm.isUsable());
    EXPECT_FALSE(noFocalLength.isUsable());
    EXPECT_FALSE(noCentre.isUsable());
    EXPECT_FALSE(endless.isUsable());
}

double& parameter(Lens& lens, std::size_t index) {
    const std::array<double*, 4> pinhole{&lens.fx, &lens.fy, &lens.cx, &lens.cy};
    return index < pinhole.size() ? *pinhole[index] : lens.distortion[index - pinhole.size()];
}

/// The derivative of project() along one change of its input, by central differences.
template <class Change>
Point slopeOf(const Change& projectChanged) {
    constexpr double kStep = 1e-5;
    const Point after = projectChanged(kStep);
    const Point before = projectChanged(-kStep);
    return {(after.x - before.x) / (2 * kStep), (after.y - before.y) / (2 * kStep)};
}

TEST(Lens, DerivativesAgreeWithDifferencesOfTheProjection) {
    for (const Point ray : {Point{0.6, -0.4}, Point{-0.3, -0.7}, Point{0.0, 0.0}}) {
        const LensDerivatives derivatives = kEveryTerm.derivatives(ray);
        const Point byX = slopeOf([&](double step) { return kEveryTerm.project({ray.x + step, ray.y}); });
        const Point byY = slopeOf([&](double step) { return kEveryTerm.project({ray.x, ray.y + step}); });
        EXPECT_NEAR(derivatives.by_ray[0][0], byX.x, 1e-5);
        EXPECT_NEAR(derivatives.by_ray[1][0], byX.y, 1e-5);
        EXPECT_NEAR(derivatives.by_ray[0][1], byY.x, 1e-5);
        EXPECT_NEAR(derivatives.by_ray[1][1], byY.y, 1e-5);
        for (std::size_t i = 0; i < 16; ++i) {
            const Point slope = slopeOf([&](double step) {
                Lens changed = kEveryTerm;
                parameter(changed, i) += step;
                return changed.project(ray);
            });
            EXPECT_NEAR(derivatives.by_parameter[0][i], slope.x, 1e-5) << i;
            EXPECT_NEAR(derivatives.by_parameter[1][i], slope.y, 1e-5) << i;
        }
    }
}

TEST(Lens, FindsTheRayThatItProjects) {
    for (double x = -0.9; x <= 0.9; x += 0.3) {
        for (double y = -0.6; y <= 0.6; y += 0.2) {
            const auto ray = kEveryTerm.rayOf(kEveryTerm.project({x, y}));
            ASSERT_TRUE(ray) << x << " " << y;
            EXPECT_NEAR(ray->x, x, 1e-9);
            EXPECT_NEAR(ray->y, y, 1e-9);
        }
    }
}

TEST(Lens, HasNoRayWhereTheModelFoldsBack) {
    // r (1 - 0.5 r^2) turns at r^2 = 2 / 3, where it is 0.5443.
    const Lens folding{1000, 1000, 0, 0, {-0.5}};
    const double turn = std::sqrt(2.0 / 3.0);

    EXPECT_TRUE(folding.isBeforeFold({0.999 * turn, 0}));
    EXPECT_FALSE(folding.isBeforeFold({1.001 * turn * 0.8, 1.001 * turn * 0.6}));
    EXPECT_TRUE(folding.rayOf({0, 540}));
    EXPECT_FALSE(folding.rayOf({550, 0}));
    EXPECT_GT(folding.undistort({0.55, 0}).error, 0.005);
}

TEST(LensDifference, IsZeroForOneLensAndKnowsARotationFromAnotherLens) {
    const Resolution image{1920, 1200};
    const Lens pinhole{20000, 20000, 959.5, 599.5, {}};
    Lens turned = pinhole;
    turned.cx += 20000 * std::tan(0.1 / 57.29577951308232);
    Lens longer = kEveryTerm;
    longer.fx *= 1.003;
    longer.fy *= 1.003;
    Lens folding = kEveryTerm;
    folding.distortion = {-3};

    const auto same = compareLenses(kEveryTerm, kEveryTerm, image);
    const auto rotation = compareLenses(pinhole, turned, image);
    const auto focalLength = compareLenses(kEveryTerm, longer, image);

    ASSERT_TRUE(same && rotation && focalLength);
    EXPECT_EQ(same->points, 33 * 21);
    EXPECT_LT(same->max_pixels, 1e-6);
    EXPECT_LT(rotation->max_pixels, 0.2);  // the shift itself is 35 pixels
    EXPECT_NEAR(rotation->rotation_degrees, 0.1, 1e-3);
    EXPECT_NEAR(focalLength->max_pixels, 0.003 * std::hypot(960, 600), 0.2);
    EXPECT_LT(focalLength->rotation_degrees, 0.01);
    EXPECT_FALSE(compareLenses(kEveryTerm, folding, image));
}

TEST(LensFit, KeepsWhatItCanExpressAndComesCloseToWhatItCannot) {
    const Resolution image{1920, 1200};
    Lens simple = kEveryTerm;
    simple.distortion = {-0.05, 0.01, 0.0001, -0.0002};

    const auto same = fitLens(simple, image, 4);
    const auto rational = fitLens(kEveryTerm, image, 8);
    const auto radial = fitLens(kEveryTerm, image, 4);

    ASSERT_TRUE(same && rational && radial);
    EXPECT_EQ(same->lens, simple);
    EXPECT_EQ(same->max_pixels, 0.0);
    const auto unfitted = compareLenses(kEveryTerm, simple, image);
    EXPECT_LT(rational->max_pixels, 2.0) << "its prism terms move pixels by 5 and more";
    EXPECT_LE(rational->max_pixels, radial->max_pixels);
    EXPECT_LT(radial->max_pixels, unfitted->max_pixels);
    for (std::size_t i = 8; i < 12; ++i) {
        EXPECT_EQ(rational->lens.distortion[i], 0.0);
    }
    EXPECT_FALSE(fitLens(Lens{}, image, 4));
}

}  // namespace
}  // namespace oru
