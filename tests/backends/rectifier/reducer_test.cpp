#include "backends/rectifier/reference/reducer.hpp"

#include <gtest/gtest.h>

#include "backends/rectifier/images.hpp"

namespace oru::rectifier {
namespace {

struct Reduced {
    Reduced(const TestImage& image, Size size) : reducer(image.size, size), bytes(reducer.bytes()) {
        std::vector<std::uint16_t> sums(reducer.scratchSize());
        reducer.reduceRows(image.frame(), bytes.data(), 0, size.height, sums.data());
    }
    [[nodiscard]] int luma(int x, int y) const { return at(2 * x, y); }
    [[nodiscard]] int u(int pair, int y) const { return at(4 * pair + 1, y); }
    [[nodiscard]] int v(int pair, int y) const { return at(4 * pair + 3, y); }
    [[nodiscard]] int at(int byte, int y) const {
        return bytes[static_cast<std::size_t>(y) * reducer.step() + static_cast<std::size_t>(byte)];
    }

    Reducer reducer;
    std::vector<unsigned char> bytes;
};

TEST(Reducer, KeepsAnEvenImageAsItIsAtEverySize) {
    TestImage image({50, 31}, 6);
    image.fill([](int, int) { return 201; }, 77, 180);
    for (const Size size : {Size{49, 30}, Size{25, 31}, Size{13, 7}, Size{50, 1}, Size{1, 1}, Size{2, 30}}) {
        const Reduced reduced(image, size);
        for (int y = 0; y < size.height; ++y) {
            for (int x = 0; x < size.width; ++x) {
                ASSERT_EQ(reduced.luma(x, y), 201) << size.width << "x" << size.height;
                ASSERT_EQ(reduced.u(x / 2, y), 77);
                ASSERT_EQ(reduced.v(x / 2, y), 180);
            }
        }
    }
}

TEST(Reducer, AveragesTwoByTwoAtHalfSizeRoundedOnce) {
    TestImage image({8, 4});
    std::mt19937 random(7);
    image.fill([&](int, int) { return static_cast<int>(random() % 256); });
    image.setChroma(4, 2, 255);
    const Reduced reduced(image, {4, 2});
    for (int y = 0; y < 2; ++y) {
        for (int x = 0; x < 4; ++x) {
            const int sum = image.pixel(2 * x, 2 * y)[0] + image.pixel(2 * x + 1, 2 * y)[0] +
                            image.pixel(2 * x, 2 * y + 1)[0] + image.pixel(2 * x + 1, 2 * y + 1)[0];
            EXPECT_EQ(reduced.luma(x, y), (sum + 2) / 4);
        }
    }
    EXPECT_EQ(reduced.u(0, 1), 128);
    EXPECT_EQ(reduced.u(1, 1), (255 + 3 * 128 + 2) / 4);
}

TEST(Reducer, TurnsStripesOfOnePixelIntoTheirMeanInsteadOfAliasing) {
    TestImage image({240, 120});
    image.fill([](int x, int y) { return (x + y) % 2 == 0 ? 20 : 220; });
    for (const Size size : {Size{120, 60}, Size{80, 40}, Size{60, 30}, Size{47, 23}}) {
        const Reduced reduced(image, size);
        for (int x = 0; x < size.width; ++x) {
            EXPECT_NEAR(reduced.luma(x, size.height / 2), 120, 20) << size.width;
        }
    }
}

TEST(Reducer, SaysWhereTheAveragedChromaLies) {
    // Reduced pixel 1 of a width halved is centred on 2.5; a pair of co-sited chroma samples, at 0 and 2, on 1.
    EXPECT_FLOAT_EQ(Reducer({64, 8}, {32, 8}).chromaSiting(0), 0.25F);
    EXPECT_FLOAT_EQ(Reducer({64, 8}, {64, 4}).chromaSiting(0), 0);
    EXPECT_FLOAT_EQ(Reducer({64, 8}, {16, 8}).chromaSiting(0.5F), 0.5F);
}

}  // namespace
}  // namespace oru::rectifier
