#include "backends/virtual_bus/sensor/sensor_modes.hpp"

#include <gtest/gtest.h>

namespace oru::virtual_bus {
namespace {

TEST(SensorModes, DefaultLensesHaveARayForEveryPixelOfEveryMode) {
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
                const auto ray = lens.rayOf({static_cast<double>(x), static_cast<double>(y)});
                ASSERT_TRUE(ray);
                const Point back = lens.project(*ray);
                ASSERT_NEAR(back.x, x, 1e-3);
                ASSERT_NEAR(back.y, y, 1e-3);
            }
        }
    }
}

TEST(SensorModes, CutAndBinTheSensorForAMode) {
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
