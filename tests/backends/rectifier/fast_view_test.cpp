#include <gtest/gtest.h>
#include <hwy/highway.h>

#include "backends/rectifier/cpu/FastRenderer.hpp"
#include "backends/rectifier/cpu/halve_kernel.hpp"
#include "backends/rectifier/random_views.hpp"

namespace oru::rectifier {
namespace {

/// Confines the kernels to one instruction set while it lives.
class OnTarget {
public:
    explicit OnTarget(int64_t target) {
        hwy::SetSupportedTargetsForTest(target);
        hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    }
    ~OnTarget() {
        hwy::SetSupportedTargetsForTest(0);
        hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    }
    OnTarget(const OnTarget&) = delete;
    OnTarget& operator=(const OnTarget&) = delete;
};

/// Every instruction set that was built and that this processor has; the plain one is always among them.
std::vector<int64_t> targets() {
    std::vector<int64_t> all;
    for (int64_t left = hwy::SupportedTargets() & HWY_TARGETS; left != 0; left &= left - 1) {
        all.push_back(left & -left);
    }
    return all;
}

/// What an image allows. Full-range noise steps by 255 levels from pixel to pixel, of which the 1/80 pixel that a
/// prepared map may be off takes three for luma and as much again for chroma.
struct Tolerance {
    int largest = 2;
    double mean = 0.2;
};

Tolerance toleranceOf(Content content) {
    return content == Content::FULL_RANGE_NOISE ? Tolerance{7, 0.5} : Tolerance{};
}

/// Draws all four views both ways.
void expectFastIsPlain(const ViewGeometry& geometry, Size size, const TestImage& image, std::size_t padding,
                       RowPool& pool, Tolerance tolerance, const std::string& what) {
    ReferenceRenderer plain(geometry, size);
    FastRenderer fast(geometry, size, pool);
    for (const bool rectified : {true, false}) {
        for (const bool gray : {true, false}) {
            TestView expected(size, gray, padding);
            TestView drawn(size, gray, padding);
            plain.draw(image.frame(), rectified, expected.target());
            fast.draw(image.frame(), rectified, drawn.target());
            const Error error = compare(drawn, expected);
            EXPECT_LE(error.largest, rectified ? tolerance.largest : 2)
                << what << (rectified ? " rectified" : " unrectified") << (gray ? " gray " : " ") << named(image.size)
                << " to " << named(size) << " at " << error.x << "," << error.y;
            EXPECT_LE(error.mean, tolerance.mean) << what << named(image.size) << " to " << named(size);
            EXPECT_TRUE(error.padding_kept) << what << named(image.size) << " to " << named(size);
        }
    }
}

TEST(FastView, EqualsThePlainViewForRandomLensesSizesStridesAndFlipsOnEveryTarget) {
    RowPool pool(0);
    for (unsigned seed = 0; seed < 40; ++seed) {
        RandomCase random(seed);
        const TestImage image = imageOf(random.source, random.content, random.padding, random.random);
        for (const int64_t target : targets()) {
            const OnTarget confined(target);
            expectFastIsPlain(random.geometry, random.view, image, random.padding, pool, toleranceOf(random.content),
                              std::string(hwy::TargetName(target)) + " seed " + std::to_string(seed) + " ");
        }
    }
}

TEST(FastView, EqualsThePlainViewForShortNormalAndLongLenses) {
    RowPool pool(1);
    std::mt19937 random(5);
    for (const NamedLens& lens : testLenses()) {
        for (const Size source : {Size{1280, 720}, Size{672, 376}}) {
            const TestImage image = imageOf(source, Content::IN_GAMUT_NOISE, 0, random);
            const ViewGeometry geometry = geometryOf(cameraOf(lens, source), true);
            expectFastIsPlain(geometry, source, image, 0, pool, {}, lens.name);
            expectFastIsPlain(geometry, {source.width / 2, source.height / 2}, image, 0, pool, {}, lens.name);
        }
    }
}

TEST(FastView, DrawsFromChromaBetweenItsPixels) {
    RowPool pool(0);
    std::mt19937 random(6);
    const Size size{320, 200};
    const TestImage image = imageOf(size, Content::IN_GAMUT_NOISE, 0, random);
    const ViewGeometry geometry = geometryOf(cameraOf(testLenses()[2], size), false);
    ReferenceRenderer plain(geometry, size);
    FastRenderer fast(geometry, size, pool);
    for (const bool rectified : {true, false}) {
        TestView expected(size, false);
        TestView drawn(size, false);
        plain.draw(image.frame(0.5F), rectified, expected.target());
        fast.draw(image.frame(0.5F), rectified, drawn.target());
        EXPECT_LE(compare(drawn, expected).largest, 2) << rectified;
    }
}

TEST(FastView, UsesThePlainWayOnlyWhereItMust) {
    if (!hasTileKernel()) {
        GTEST_SKIP() << "no vector instructions";
    }
    for (const NamedLens& lens : testLenses()) {
        for (const Size source : {Size{1920, 1200}}) {
            for (const Size view : {source, Size{source.width / 2, source.height / 2}}) {
                const ViewGeometry geometry = geometryOf(cameraOf(lens, source), false);
                const MeshMap mesh(ViewMap(geometry.lens, geometry.rectified, source, view, false), view, 0, true);
                int plain = 0;
                int all = 0;
                for (int row = 0; row < (view.height + MeshMap::kTileHeight - 1) / MeshMap::kTileHeight; ++row) {
                    for (const TileRun& run : mesh.runs(row, false)) {
                        all += run.count;
                        plain += run.kind == TileKind::EXACT ? run.count : 0;
                    }
                }
                EXPECT_LE(plain, all / 200) << lens.name << " " << named(view);
            }
        }
    }
}

TEST(HalveRows, MakesTheSameBytesAsTheReducerOnEveryTarget) {
    std::mt19937 random(8);
    for (const int64_t target : targets()) {
        const OnTarget confined(target);
        for (const Size size : {Size{4, 2}, Size{36, 6}, Size{64, 4}, Size{132, 2}, Size{260, 10}, Size{1920, 4}}) {
            const TestImage image = imageOf(size, Content::FULL_RANGE_NOISE, 3, random);
            const Reducer reducer(size, {size.width / 2, size.height / 2});
            std::vector<std::uint16_t> sums(reducer.scratchSize());
            std::vector<unsigned char> plain(reducer.bytes());
            std::vector<unsigned char> halved(reducer.bytes());
            reducer.reduceRows(image.frame(), plain.data(), 0, size.height / 2, sums.data());
            halveRows(image.frame(), halved.data(), reducer.step(), 0, size.height / 2);
            EXPECT_EQ(halved, plain) << hwy::TargetName(target) << " " << named(size);

            std::vector<unsigned char> luma(static_cast<std::size_t>(size.width / 2));
            halveLumaRows(image.frame(), luma.data(), luma.size(), 0, 1);
            for (std::size_t column = 0; column < luma.size(); ++column) {
                ASSERT_EQ(luma[column], plain[2 * column]) << hwy::TargetName(target) << " " << named(size);
            }
        }
    }
}

TEST(RowPool, GivesEveryRowToExactlyOneThreadOverManyRuns) {
    RowPool pool(3);
    std::vector<std::atomic<int>> taken(101);
    std::vector<std::atomic<int>> byThread(4);
    constexpr int kRuns = 300;
    for (int run = 0; run < kRuns; ++run) {
        pool.run(101, 7, run % 10 == 9, [&](int first, int end, int thread) {
            for (int row = first; row < end; ++row) {
                taken[static_cast<std::size_t>(row)].fetch_add(1, std::memory_order_relaxed);
            }
            byThread[static_cast<std::size_t>(thread)].fetch_add(end - first, std::memory_order_relaxed);
        });
        ASSERT_EQ(taken[0].load(), run + 1);
    }
    int all = 0;
    for (const auto& rows : taken) {
        EXPECT_EQ(rows.load(), kRuns);
    }
    for (const auto& rows : byThread) {
        all += rows.load();
    }
    EXPECT_EQ(all, 101 * kRuns);
}

}  // namespace
}  // namespace oru::rectifier
