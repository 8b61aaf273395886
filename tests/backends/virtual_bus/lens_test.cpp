#include "backends/virtual_bus/scene/lens.hpp"

#include <gtest/gtest.h>

#include "backends/virtual_bus/sensor/sensor_modes.hpp"

namespace oru::virtual_bus {
namespace {

TEST(Lens, UndistortsEveryPixelOfEveryModeToWhatDistortsBack) {
    struct Case {
        MODEL model;
        int width, height;
    };
    for (const Case& c :
         {Case{MODEL_MONO_3UM, 1920, 1200}, Case{MODEL_MONO_3UM, 1920, 1080}, Case{MODEL_MONO_3UM, 960, 600},
          Case{MODEL_MONO_2UM, 3840, 2160}, Case{MODEL_MONO_2UM, 3200, 1800}, Case{MODEL_MONO_2UM, 1920, 1080},
          Case{MODEL_MONO_2UM, 1920, 1200}}) {
        SCOPED_TRACE(std::to_string(c.model) + ": " + std::to_string(c.height));
        const Lens lens = modeLens(c.model, defaultLens(c.model), *findMode(c.model, c.width, c.height));
        for (int y = 0; y <= c.height; y += c.height / 10) {
            for (int x = 0; x <= c.width; x += c.width / 10) {
                Point direction;
                ASSERT_TRUE(undistortPixel(lens, {static_cast<double>(x), static_cast<double>(y)}, direction));
                const Point back = distort(lens, direction);
                ASSERT_NEAR(lens.fx * back.x + lens.cx, x, 1e-3);
                ASSERT_NEAR(lens.fy * back.y + lens.cy, y, 1e-3);
            }
        }
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

        const Point point = distort(lens, {0.5, 0.25});

        EXPECT_NEAR(point.x, c.expected.x, 1e-12);
        EXPECT_NEAR(point.y, c.expected.y, 1e-12);
    }
}

TEST(Lens, CutsAndBinsTheSensorForAMode) {
    const Lens sensor{2000.0, 2000.0, 1919.5, 1079.5, {}};

    const Lens binned = modeLens(MODEL_MONO_2UM, sensor, *findMode(MODEL_MONO_2UM, 1920, 1080));
    const Lens cut = modeLens(MODEL_MONO_2UM, sensor, *findMode(MODEL_MONO_2UM, 1920, 1200));

    EXPECT_DOUBLE_EQ(binned.fx, 1000.0);
    EXPECT_DOUBLE_EQ(binned.cx, 959.5);
    EXPECT_DOUBLE_EQ(binned.cy, 539.5);
    EXPECT_DOUBLE_EQ(cut.fx, 2000.0);
    EXPECT_DOUBLE_EQ(cut.cx, 959.5);
    EXPECT_DOUBLE_EQ(cut.cy, 599.5);
}

}  // namespace
}  // namespace oru::virtual_bus
