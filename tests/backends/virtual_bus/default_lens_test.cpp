#include "backends/virtual_bus/sensor/default_lens.hpp"

#include <gtest/gtest.h>

#include "oru/calibration.hpp"

namespace oru::virtual_bus {
namespace {

TEST(DefaultLens, HasARayForEveryPixelOfEveryMode) {
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

}  // namespace
}  // namespace oru::virtual_bus
