#include "backends/virtual_bus/sensor/sensor_controls.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <numeric>
#include <string>
#include <vector>

#include "backends/virtual_bus/BusRig.hpp"
#include "backends/virtual_bus/sensor/ImagePipeline.hpp"

namespace oru::virtual_bus {
namespace {

constexpr int kWidth = 256;
constexpr int kHeight = 64;

/// Luma rises along the rows from 16 to 117; chroma is a fixed orange.
std::vector<unsigned char> ramp() {
    std::vector<unsigned char> image;
    for (int i = 0; i < kWidth * kHeight; ++i) {
        image.push_back(static_cast<unsigned char>(16 + (i % kWidth) * 2 / 5));
        image.push_back(i % 2 == 0 ? 100 : 160);
    }
    return image;
}

struct Look {
    double luma, u, v, step;  // means, and the mean step between collaborators
};

Look lookAt(const std::vector<unsigned char>& image) {
    Look look{0.0, 0.0, 0.0, 0.0};
    for (std::size_t i = 0; i + 5 < image.size(); i += 4) {
        look.luma += image[i] + image[i + 2];
        look.u += image[i + 1];
        look.v += image[i + 3];
        look.step += std::abs(image[i + 2] - image[i]) + std::abs(image[i + 4] - image[i + 2]);
    }
    const double pairs = static_cast<double>(image.size()) / 4.0;
    return {look.luma / pairs / 2.0, look.u / pairs, look.v / pairs, look.step / pairs / 2.0};
}

std::vector<unsigned char> process(const ImageSettings& settings, std::vector<unsigned char> image = ramp()) {
    ImagePipeline pipeline(kWidth, kHeight);
    pipeline.begin(settings);
    pipeline.rows(image.data(), 0, kHeight);
    pipeline.finish(image.data());
    return image;
}

ImageSettings after(const std::vector<std::pair<VIDEO_SETTINGS, int>>& writes) {
    SensorControls controls;
    controls.reset(kWidth, kHeight, 30, false);
    for (const auto& [setting, value] : writes) {
        EXPECT_EQ(controls.set(setting, value, false), 0);
    }
    return controls.image();
}

TEST(SensorControls, HaveTheirRangesAndDefaults) {
    struct Case {
        VIDEO_SETTINGS setting;
        int min, max, standard;
    };
    const Case cases[] = {
        {SETTING_0, 0, 8, 4},
        {SETTING_1, 0, 8, 4},
        {SETTING_2, 0, 11, 0},
        {SETTING_3, 0, 8, 4},
        {SHARPNESS, 0, 8, 3},
        {SETTING_5, 1, 9, 5},
        {GAIN, 0, 100, 0},
        {EXPOSURE, 0, 100, 24},
        {AEC_AGC, 0, 1, 1},
        {SETTING_10, 2800, 6500, 4600},
        {SETTING_10_AUTO, 0, 1, 1},
        {SETTING_12, 0, 1, 0},
        {GMSL_SETTING_13, 28, 33333, 8000},
        {GMSL_SETTING_14, 0, 24000, 0},
        {GMSL_SETTING_15, 0, 12000, 0},
        {GMSL_SETTING_19, 0, 100, 50},
        {GMSL_SETTING_20, 0, 100, 50},
    };
    SensorControls controls;
    int min = 0;
    int max = 0;
    EXPECT_FALSE(controls.range(GAIN, min, max)) << "no camera, no range";
    for (const Case& c : cases) {
        SCOPED_TRACE(c.setting);
        controls.reset(kWidth, kHeight, 30, false);
        ASSERT_TRUE(controls.range(c.setting, min, max));
        EXPECT_EQ(min, c.min);
        EXPECT_EQ(max, c.max);
        EXPECT_EQ(controls.value(c.setting), c.standard);
        EXPECT_TRUE(controls.accepts(c.setting, -1));
        EXPECT_FALSE(controls.accepts(c.setting, c.max + 1));
        EXPECT_EQ(controls.set(c.setting, c.max + 1, false), -1);
        EXPECT_EQ(controls.set(c.setting, c.max, false), 0);
        EXPECT_EQ(controls.value(c.setting), c.max);
    }
    EXPECT_FALSE(controls.accepts(AEC_AGC_ROI, 0));
    EXPECT_FALSE(controls.accepts(static_cast<VIDEO_SETTINGS>(21), 0));
}

TEST(SensorControls, ManualLevelsEndTheirAutomatic) {
    SensorControls controls;
    controls.reset(kWidth, kHeight, 30, false);

    for (const VIDEO_SETTINGS level : {GAIN, EXPOSURE}) {
        ASSERT_EQ(controls.set(AEC_AGC, 1, false), 0);
        ASSERT_EQ(controls.set(level, -1, true), 0);
        EXPECT_EQ(controls.value(AEC_AGC), 1) << level;
        ASSERT_EQ(controls.set(level, 50, false), 0);
        EXPECT_EQ(controls.value(AEC_AGC), 0) << level;
    }
    ASSERT_EQ(controls.set(SETTING_10, -1, true), 0);
    EXPECT_EQ(controls.value(SETTING_10_AUTO), 1);
    ASSERT_EQ(controls.set(SETTING_10, 3000, false), 0);
    EXPECT_EQ(controls.value(SETTING_10_AUTO), 0);
    ASSERT_EQ(controls.set(GAIN, -1, true), 0);
    EXPECT_EQ(controls.value(GAIN), 0) << "without the loop, automatic is the default";
}

TEST(SensorControls, FixedLevelsAndBoundsNeverChangeWhatTheCameraKeepsOfItsOwnWrites) {
    SensorControls controls;
    controls.reset(kWidth, kHeight, 30, false);
    const auto readings = [&] {
        return std::array{controls.value(EXPOSURE), controls.value(GAIN), controls.value(AEC_AGC)};
    };
    const auto disturb = [&] {
        for (const int value : {1000, 9000}) {
            for (const VIDEO_SETTINGS level : {GMSL_SETTING_13, GMSL_SETTING_14, GMSL_SETTING_15}) {
                ASSERT_EQ(controls.set(level, value, false), 0);
                EXPECT_EQ(controls.value(level), value);
            }
        }
        ASSERT_EQ(controls.setRange(RANGE_SETTING_16, {100, 200}, false), 0);
        ASSERT_EQ(controls.setRange(RANGE_SETTING_17, {0, 0}, false), 0);
        ASSERT_EQ(controls.setRange(RANGE_SETTING_18, {0, 0}, false), 0);
    };
    ASSERT_EQ(controls.set(EXPOSURE, 50, false), 0);
    ASSERT_EQ(controls.set(GAIN, 20, false), 0);
    const ImageSettings manual = controls.image();

    disturb();
    EXPECT_EQ(readings(), (std::array{50, 20, 0}));
    EXPECT_LT(controls.image().light, 0.1 * manual.light) << "what is fixed and bounded is what images are taken with";

    for (const VIDEO_SETTINGS setting : {RANGE_SETTING_16, RANGE_SETTING_17, RANGE_SETTING_18}) {
        ASSERT_EQ(controls.setRange(setting, {-1, -1}, true), 0);
    }
    for (const VIDEO_SETTINGS level : {GMSL_SETTING_13, GMSL_SETTING_14, GMSL_SETTING_15}) {
        ASSERT_EQ(controls.set(level, -1, true), 0);
    }
    EXPECT_EQ(controls.image(), manual) << "released, the levels written before are there again";

    ASSERT_EQ(controls.set(AEC_AGC, 1, false), 0);
    disturb();
    EXPECT_EQ(controls.value(AEC_AGC), 1);
}

TEST(SensorControls, LoopReachesItsTargetAroundFixedLevels) {
    struct Case {
        std::vector<std::pair<VIDEO_SETTINGS, int>> fixed;
    };
    for (const Case& c : {Case{{{GMSL_SETTING_13, 4000}}}, Case{{{GMSL_SETTING_14, 12000}}},
                          Case{{{GMSL_SETTING_15, 6000}}}, Case{{{GMSL_SETTING_13, 16000}, {GMSL_SETTING_15, 6000}}}}) {
        SensorControls controls;
        controls.reset(kWidth, kHeight, 30, false);
        for (const auto& [level, value] : c.fixed) {
            ASSERT_EQ(controls.set(level, value, false), 0);
        }
        double luma = 0.0;
        for (int frame = 0; frame < 30; ++frame) {
            luma = 16.0 + std::min(219.0, 20.0 * controls.image().light);
            controls.observe(luma);
        }
        EXPECT_NEAR(luma, 110.0, 6.0) << c.fixed.front().first;
        EXPECT_EQ(controls.value(c.fixed.front().first), c.fixed.front().second);
    }
}

TEST(SensorControls, RangesBoundManualAndAutomaticLevels) {
    SensorControls controls;
    controls.reset(kWidth, kHeight, 30, false);
    ASSERT_EQ(controls.setRange(RANGE_SETTING_16, {1000, 4000}, false), 0);
    ASSERT_EQ(controls.setRange(RANGE_SETTING_17, {0, 6000}, false), 0);
    ASSERT_EQ(controls.setRange(RANGE_SETTING_18, {0, 0}, false), 0);

    for (int i = 0; i < 50; ++i) {
        controls.observe(16.0);
    }
    EXPECT_EQ(controls.value(GMSL_SETTING_13), 4000);
    EXPECT_EQ(controls.value(GMSL_SETTING_14), 6000);
    EXPECT_EQ(controls.value(GMSL_SETTING_15), 0);
    ASSERT_EQ(controls.set(GMSL_SETTING_13, 20000, false), 0);
    EXPECT_EQ(controls.value(GMSL_SETTING_13), 4000);

    EXPECT_EQ(controls.rangeValue(RANGE_SETTING_16), std::pair(1000, 4000));
    EXPECT_EQ(controls.setRange(RANGE_SETTING_16, {4000, 1000}, false), -1);
    EXPECT_EQ(controls.setRange(RANGE_SETTING_16, {0, 1000}, false), -1);
    EXPECT_EQ(controls.setRange(RANGE_SETTING_16, {-1, -1}, true), 0);
    EXPECT_EQ(controls.rangeValue(RANGE_SETTING_16), std::pair(28, 33333));
    EXPECT_EQ(controls.rangeValue(GAIN), std::pair(-1, -1));
}

TEST(SensorControls, LoopReachesItsTargetFromAnyLightWithinASecondAt15Fps) {
    for (const double scene : {0.05, 0.5, 1.0, 8.0}) {  // luma above black at neutral light, in hundreds
        SensorControls controls;
        controls.reset(kWidth, kHeight, 15, false);
        double luma = 0.0;
        for (int frame = 0; frame < 15; ++frame) {
            luma = 16.0 + std::min(219.0, 100.0 * scene * controls.image().light);
            controls.observe(luma);
        }
        EXPECT_NEAR(luma, 110.0, 6.0) << scene;
    }
}

TEST(SensorControls, RegionMustLieInTheImage) {
    SensorControls controls;
    controls.reset(kWidth, kHeight, 30, false);
    Rect region;
    ASSERT_EQ(controls.region(region), 0);
    EXPECT_EQ(region, (Rect{0, 0, kWidth, kHeight}));

    EXPECT_EQ(controls.setRegion({10, 20, 30, 40}), 0);
    for (const Rect& wrong : {Rect{0, 0, 0, 10}, Rect{250, 0, 10, 10}, Rect{0, 60, 10, 5}, Rect{~0ULL, 0, 2, 2}}) {
        EXPECT_EQ(controls.setRegion(wrong), -1);
    }
    ASSERT_EQ(controls.region(region), 0);
    EXPECT_EQ(region, (Rect{10, 20, 30, 40}));
    EXPECT_EQ(controls.resetRegion(), 0);
    ASSERT_EQ(controls.region(region), 0);
    EXPECT_EQ(region, (Rect{0, 0, kWidth, kHeight}));
}

TEST(ImagePipeline, LeavesTheImageAloneAtTheDefaults) {
    EXPECT_EQ(process(after({})), ramp());
}

TEST(ImagePipeline, ShowsEachControl) {
    using Relation = std::function<bool(const Look&, const Look&)>;
    struct Case {
        const char* what;
        std::vector<std::pair<VIDEO_SETTINGS, int>> writes;
        Relation holds;
    };
    const auto near = [](double a, double b, double tolerance) { return std::abs(a - b) < tolerance; };
    const Case cases[] = {
        {"brightness adds 8 a step", {{SETTING_0, 6}}, [&](auto& a, auto& b) { return near(b.luma, a.luma + 16, 1); }},
        {"contrast 0 halves every difference",
         {{SETTING_1, 0}},
         [&](auto& a, auto& b) {
             return near(b.step, a.step / 2, 0.1) && near(125.5 - b.luma, (125.5 - a.luma) / 2, 1);
         }},
        {"hue turns chroma by 180 degrees",
         {{SETTING_2, 6}},
         [&](auto& a, auto& b) { return near(b.u - 128, 128 - a.u, 1) && near(b.v - 128, 128 - a.v, 1); }},
        {"saturation 0 is grey",
         {{SETTING_3, 0}},
         [&](auto& a, auto& b) { return near(b.u, 128, 0.1) && near(b.v, 128, 0.1) && near(a.luma, b.luma, 0.1); }},
        {"gamma lifts the dark", {{SETTING_5, 9}}, [](auto& a, auto& b) { return b.luma > a.luma + 10; }},
        {"doubled exposure time doubles luma and chroma",
         {{GMSL_SETTING_13, 16000}},
         [&](auto& a, auto& b) {
             return near(b.luma - 16, 2 * (a.luma - 16), 1) && near(b.v - 128, 2 * (a.v - 128), 1);
         }},
        {"6.02 dB double it too",
         {{GMSL_SETTING_20, 100}, {GMSL_SETTING_14, 6021}},
         [&](auto& a, auto& b) { return near(b.luma - 16, 2 * (a.luma - 16), 1.5); }},
        {"gain brightens", {{GAIN, 10}}, [](auto& a, auto& b) { return b.luma > a.luma + 10; }},
        {"a short exposure darkens", {{EXPOSURE, 5}}, [](auto& a, auto& b) { return b.luma < 0.6 * a.luma; }},
        {"white balance warms", {{SETTING_10, 6500}}, [](auto& a, auto& b) { return b.v > a.v + 5 && b.u < a.u; }},
    };
    const Look neutral = lookAt(ramp());
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const Look changed = lookAt(process(after(c.writes)));
        EXPECT_TRUE(c.holds(neutral, changed))
            << changed.luma << ' ' << changed.u << ' ' << changed.v << ' ' << changed.step << " was " << neutral.luma
            << ' ' << neutral.u << ' ' << neutral.v << ' ' << neutral.step;
    }
}

TEST(ImagePipeline, SharpnessRaisesAndLowersTheContrastOfEdges) {
    std::vector<unsigned char> bars = ramp();
    for (std::size_t i = 0; i < bars.size(); i += 2) {
        bars[i] = (i / 4) % 2 == 0 ? 90 : 150;
    }
    const auto step = [&](int sharpness) { return lookAt(process(after({{SHARPNESS, sharpness}}), bars)).step; };

    EXPECT_GT(step(8), 1.2 * step(3));
    EXPECT_LT(step(0), 0.9 * step(3));
}

TEST(ImagePipeline, DenoisingLowersTheNoiseOfGain) {
    std::vector<unsigned char> flat = ramp();
    for (std::size_t i = 0; i < flat.size(); i += 2) {
        flat[i] = 24;
    }
    const double noisy = lookAt(process(after({{GMSL_SETTING_20, 0}, {GMSL_SETTING_14, 18000}}), flat)).step;
    const double clean = lookAt(process(after({{GMSL_SETTING_20, 100}, {GMSL_SETTING_14, 18000}}), flat)).step;

    EXPECT_GT(noisy, 2.0);
    EXPECT_LT(clean, 0.4 * noisy);
}

TEST(ImagePipeline, LampAndHdrShow) {
    const auto lamp = process(after({{SETTING_12, 1}}));
    const std::size_t corner = static_cast<std::size_t>(kHeight - 1) * kWidth * 2;
    ImageSettings hdr = after({});
    hdr.hdr = true;

    EXPECT_NE(lamp[corner + 1], ramp()[corner + 1]);
    EXPECT_EQ(lamp[0], ramp()[0]);
    EXPECT_GT(lookAt(process(hdr)).luma, lookAt(ramp()).luma + 10);
}

TEST(VirtualGrabber, AutomaticExposureRecoversFromAWrongManualOne) {
    BusRig rig;
    ASSERT_EQ(rig.open(), SETUP_OK);
    const auto meanLuma = [&] {
        double sum = 0.0;
        for (std::size_t i = 0; i < 960 * 600 * 2; i += 2) {
            sum += rig.pixels[i];
        }
        return sum / (960.0 * 600.0);
    };
    ASSERT_EQ(rig.grabber->setGrabberSettingsValue(EXPOSURE, 100, false), 0);
    ASSERT_EQ(rig.grabber->setGrabberSettingsValue(GAIN, 30, false), 0);
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(rig.takeFrame());
    }
    EXPECT_GT(meanLuma(), 170.0);

    ASSERT_EQ(rig.grabber->setGrabberSettingsValue(AEC_AGC, 1, false), 0);
    for (int i = 0; i < 60; ++i) {
        ASSERT_TRUE(rig.takeFrame());
    }
    EXPECT_NEAR(meanLuma(), 110.0, 10.0);
}

}  // namespace
}  // namespace oru::virtual_bus
