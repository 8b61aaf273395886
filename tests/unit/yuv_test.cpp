#include "utils/yuv.hpp"

#include <gtest/gtest.h>
#include <hwy/highway.h>

#include <array>
#include <random>
#include <string>
#include <vector>

namespace oru {
namespace {

using Bytes = std::vector<unsigned char>;

constexpr unsigned char kUntouched = 0xA5;

struct Shape {
    std::size_t width;
    std::size_t height;
    std::size_t padding;
};

/// An image in both layouts, every buffer with padding after each row.
struct Image {
    explicit Image(Shape image)
        : shape(image),
          packed_step(2 * shape.width + shape.padding),
          luma_step(shape.width + shape.padding),
          chroma_step(shape.width / 2 + shape.padding),
          packed(packed_step * shape.height, kUntouched),
          y(luma_step * shape.height, kUntouched),
          u(chroma_step * shape.height, kUntouched),
          v(u) {}

    YuvPlanes planes() { return {y.data(), u.data(), v.data(), luma_step, chroma_step, chroma_step}; }
    [[nodiscard]] ConstYuvPlanes constPlanes() const {
        return {y.data(), u.data(), v.data(), luma_step, chroma_step, chroma_step};
    }

    void fillPacked(unsigned seed) {
        std::mt19937 random(seed);
        for (std::size_t row = 0; row < shape.height; ++row) {
            for (std::size_t i = 0; i < 2 * shape.width; ++i) {
                packed[row * packed_step + i] = static_cast<unsigned char>(random());
            }
        }
    }

    Shape shape;
    std::size_t packed_step, luma_step, chroma_step;
    Bytes packed, y, u, v;
};

/// The tests below, once for each instruction set that was built and that this processor has.
class Yuv : public testing::TestWithParam<int64_t> {
protected:
    Yuv() { confineTo(GetParam()); }
    ~Yuv() override { confineTo(0); }

    static void confineTo(int64_t target) {
        hwy::SetSupportedTargetsForTest(target);
        hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    }
};

std::vector<int64_t> targets() {
    std::vector<int64_t> all;
    for (int64_t left = hwy::SupportedTargets() & HWY_TARGETS; left != 0; left &= left - 1) {
        all.push_back(left & -left);
    }
    return all;
}

const std::vector<Shape> kShapes{{2, 1, 0},   {4, 2, 3},   {6, 3, 1},  {30, 5, 0},  {32, 4, 16},
                                 {62, 7, 5},  {64, 6, 64}, {66, 9, 2}, {128, 3, 0}, {130, 2, 7},
                                 {254, 5, 1}, {258, 4, 0}, {392, 3, 2}};

std::string named(Shape shape) {
    return std::to_string(shape.width) + "x" + std::to_string(shape.height) + " padding " +
           std::to_string(shape.padding);
}

/// The sample of pair `pair` of a packed row: 0 first luma, 1 U, 2 second luma, 3 V.
unsigned char packedSample(const Image& image, std::size_t row, std::size_t pair, std::size_t component) {
    return image.packed[row * image.packed_step + 4 * pair + component];
}

TEST_P(Yuv, SplitsIntoPlanarAndJoinsBackWithoutLossIn422) {
    for (const Shape& shape : kShapes) {
        Image original(shape);
        original.fillPacked(1);
        yuyvToI422(original.packed.data(), original.packed_step, original.planes(), shape.width, shape.height);
        Image back(shape);
        i422ToYuyv(original.constPlanes(), back.packed.data(), back.packed_step, shape.width, shape.height);
        EXPECT_EQ(back.packed, original.packed) << named(shape);
        EXPECT_EQ(original.y[0], original.packed[0]);
        EXPECT_EQ(original.u[0], original.packed[1]);
        EXPECT_EQ(original.y[1], original.packed[2]);
        EXPECT_EQ(original.v[0], original.packed[3]);
    }
}

TEST_P(Yuv, AveragesChromaOfRowPairsAndKeepsLumaIn420) {
    for (const Shape& shape : kShapes) {
        Image image(shape);
        image.fillPacked(2);
        yuyvToI420(image.packed.data(), image.packed_step, image.planes(), shape.width, shape.height);
        for (std::size_t row = 0; row < shape.height; ++row) {
            const std::size_t upper = row / 2 * 2;
            const std::size_t lower = std::min(upper + 1, shape.height - 1);
            for (std::size_t pair = 0; pair < shape.width / 2; ++pair) {
                const unsigned char* luma = &image.y[row * image.luma_step + 2 * pair];
                ASSERT_EQ(luma[0], packedSample(image, row, pair, 0)) << named(shape);
                ASSERT_EQ(luma[1], packedSample(image, row, pair, 2)) << named(shape);
                const std::size_t at = row / 2 * image.chroma_step + pair;
                const auto mean = [&](std::size_t c) {
                    return (packedSample(image, upper, pair, c) + packedSample(image, lower, pair, c) + 1) / 2;
                };
                ASSERT_EQ(image.u[at], mean(1)) << named(shape);
                ASSERT_EQ(image.v[at], mean(3)) << named(shape);
            }
        }
    }
}

TEST_P(Yuv, GivesBothRowsOfAPairTheirSharedChromaFrom420) {
    for (const Shape& shape : kShapes) {
        Image image(shape);
        image.fillPacked(3);
        yuyvToI420(image.packed.data(), image.packed_step, image.planes(), shape.width, shape.height);
        Image back(shape);
        i420ToYuyv(image.constPlanes(), back.packed.data(), back.packed_step, shape.width, shape.height);
        for (std::size_t row = 0; row < shape.height; ++row) {
            for (std::size_t pair = 0; pair < shape.width / 2; ++pair) {
                const std::size_t at = row / 2 * image.chroma_step + pair;
                ASSERT_EQ(packedSample(back, row, pair, 0), packedSample(image, row, pair, 0)) << named(shape);
                ASSERT_EQ(packedSample(back, row, pair, 1), image.u[at]) << named(shape);
                ASSERT_EQ(packedSample(back, row, pair, 3), image.v[at]) << named(shape);
            }
        }
    }
}

TEST_P(Yuv, LeavesPaddingAndUnusedChromaRowsUntouched) {
    for (const Shape& shape : kShapes) {
        Image image(shape);
        image.fillPacked(4);
        yuyvToI420(image.packed.data(), image.packed_step, image.planes(), shape.width, shape.height);
        Image back(shape);
        i420ToYuyv(image.constPlanes(), back.packed.data(), back.packed_step, shape.width, shape.height);
        const auto expectUntouched = [&](const Bytes& bytes, std::size_t step, std::size_t used, std::size_t rows) {
            for (std::size_t i = 0; i < bytes.size(); ++i) {
                if (i / step >= rows || i % step >= used) {
                    ASSERT_EQ(bytes[i], kUntouched) << named(shape) << " byte " << i;
                }
            }
        };
        expectUntouched(image.y, image.luma_step, shape.width, shape.height);
        expectUntouched(image.u, image.chroma_step, shape.width / 2, (shape.height + 1) / 2);
        expectUntouched(image.v, image.chroma_step, shape.width / 2, (shape.height + 1) / 2);
        expectUntouched(back.packed, back.packed_step, 2 * shape.width, shape.height);
    }
}

INSTANTIATE_TEST_SUITE_P(Targets, Yuv, testing::ValuesIn(targets()),
                         [](const auto& target) { return std::string(hwy::TargetName(target.param)); });

}  // namespace
}  // namespace oru
