#include "oru_koru/CameraUtils.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "doubles/LogCapture.hpp"

namespace oru {
namespace {

using doubles::LogCapture;

TEST(CheckRequestedResolution, DefaultsClampsAndWarns) {
    const char* const wide = "[Mat]  Desired width exceed image width.";
    const char* const high = "[Mat]  Desired height exceed image height.";
    const struct {
        Resolution request;
        bool fits;
        Resolution left;
        const char* warning;
    } cases[] = {
        {{0, 0}, true, {1920, 1200}, nullptr},     {{0, 5}, true, {1920, 1200}, nullptr},
        {{5, 0}, true, {1920, 1200}, nullptr},     {{1920, 1200}, true, {1920, 1200}, nullptr},
        {{960, 600}, true, {960, 600}, nullptr},   {{1921, 1200}, false, {1920, 1200}, wide},
        {{2000, 100}, false, {1920, 100}, wide},   {{1920, 1201}, false, {1920, 1200}, high},
        {{3000, 3000}, false, {1920, 3000}, wide},
    };
    for (const auto& [request, fits, left, warning] : cases) {
        LogCapture capture;
        Resolution requested = request;
        Resolution image{1920, 1200};

        EXPECT_EQ(checkRequestedResolution(requested, image), fits);

        EXPECT_EQ(requested, left) << request.width << " x " << request.height;
        EXPECT_EQ(image, (Resolution{1920, 1200}));
        if (warning == nullptr) {
            EXPECT_THAT(capture.messages(), testing::IsEmpty());
        } else {
            EXPECT_THAT(capture.messages(), testing::ElementsAre(testing::Pair(LogLevel::Warning, warning)));
        }
    }
}

}  // namespace
}  // namespace oru
