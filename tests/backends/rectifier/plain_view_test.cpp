#include "backends/rectifier/reference/reference_view.hpp"

#include <gtest/gtest.h>

#include "backends/rectifier/images.hpp"

namespace oru::rectifier {
namespace {

TEST(ReferenceView, TurnsKnownColoursIntoTheirRgb) {
    struct Row {
        const char* name;
        Yuv yuv;
        Bgr bgr;
    };
    // BT.601 video-range codes of the colour bars (ITU-R BT.601), to the rounding of a code.
    for (const Row& row :
         {Row{"white", {235, 128, 128}, {255, 255, 255}}, Row{"black", {16, 128, 128}, {0, 0, 0}},
          Row{"red", {81.481F, 90.203F, 240}, {0, 0, 255}}, Row{"green", {144.553F, 53.797F, 34.214F}, {0, 255, 0}},
          Row{"blue", {40.966F, 240, 109.786F}, {255, 0, 0}}, Row{"below black", {0, 128, 128}, {0, 0, 0}},
          Row{"beyond blue", {255, 255, 128}, {255, 228.53F, 255}}}) {
        const Bgr bgr = toBgr(row.yuv);
        EXPECT_NEAR(bgr.b, row.bgr.b, 0.05) << row.name;
        EXPECT_NEAR(bgr.g, row.bgr.g, 0.05) << row.name;
        EXPECT_NEAR(bgr.r, row.bgr.r, 0.05) << row.name;
    }
}

TEST(ReferenceView, InterpolatesLumaBetweenFourPixelsAndHoldsItInTheOuterHalfPixel) {
    TestImage image({4, 3});
    image.fill([](int x, int y) { return 20 + 40 * x + 10 * y; });
    const YuyvFrame frame = image.frame();
    EXPECT_FLOAT_EQ(sampleLuma(frame, {1.25F, 0.5F}), 20 + 50 + 5);
    EXPECT_FLOAT_EQ(sampleLuma(frame, {-0.5F, 1}), 30);
    EXPECT_FLOAT_EQ(sampleLuma(frame, {3.5F, 2.5F}), 20 + 120 + 20);
    EXPECT_TRUE(insideImage(frame, {-0.5F, 2.5F}));
    EXPECT_FALSE(insideImage(frame, {-0.51F, 1}));
    EXPECT_FALSE(insideImage(frame, {1, 2.51F}));
    EXPECT_FALSE(insideImage(frame, {NAN, 1}));
}

TEST(ReferenceView, DrawsBlackOutsideTheImageWithOpaqueAlpha) {
    TestImage image({4, 2});
    image.fill([](int, int) { return 200; });
    const std::vector<SourcePosition> positions{{1, 1}, {-3, 1}, {1, 90}};
    std::vector<unsigned char> bgra(12);
    std::vector<unsigned char> gray(3);
    drawBgra(image.frame(), positions.data(), 3, bgra.data());
    drawGray(image.frame(), positions.data(), 3, gray.data());
    EXPECT_EQ(bgra, (std::vector<unsigned char>{214, 214, 214, 255, 0, 0, 0, 255, 0, 0, 0, 255}));
    EXPECT_EQ(gray, (std::vector<unsigned char>{200, 0, 0}));
}

TEST(ReferenceView, TakesChromaWhereItsSitingPutsIt) {
    TestImage image({8, 1});
    image.fill([](int, int) { return 128; });
    image.setChroma(2, 0, 160);  // the second of four U samples
    image.setChroma(3, 0, 96);   // and of V
    const auto uAt = [&](float x, float siting) { return sampleYuv(image.frame(siting), {x, 0}).u; };
    EXPECT_FLOAT_EQ(uAt(2, 0), 160);
    EXPECT_FLOAT_EQ(uAt(3, 0), 144);
    EXPECT_FLOAT_EQ(uAt(2.5F, 0.5F), 160);
    EXPECT_FLOAT_EQ(uAt(2, 0.5F), 152);
    EXPECT_FLOAT_EQ(sampleYuv(image.frame(0), {1, 0}).v, 112);
}

}  // namespace
}  // namespace oru::rectifier
