#include "backends/rectifier/device/ReducedImage.hpp"
#include "backends/rectifier/device/view_job.hpp"

#include <gtest/gtest.h>

#include <cstring>

#include "backends/gpu/host/host_gpu_runtime.hpp"
#include "backends/rectifier/random_views.hpp"
#include "backends/rectifier/reference/reference_view.hpp"

namespace oru::rectifier {
namespace {

/// The image's bytes as the pixel code wants them: whole pairs, no padding.
std::vector<std::uint32_t> pairsOf(const TestImage& image) {
    const int pairsPerRow = (image.size.width + 1) / 2;
    std::vector<std::uint32_t> pairs(static_cast<std::size_t>(pairsPerRow * image.size.height));
    for (int row = 0; row < image.size.height; ++row) {
        std::memcpy(&pairs[static_cast<std::size_t>(row * pairsPerRow)], image.frame().row(row),
                    static_cast<std::size_t>(image.size.width) * 2);
    }
    return pairs;
}

struct SightComparison {
    double largest = 0;  // distance of the places, in pixels
    int outside = 0;

    /// Fails when pixel code and plain map disagree on what lies inside the image.
    void add(const ViewGeometry& geometry, Size view, const std::string& what) {
        const ViewMap map(geometry.lens, geometry.rectified, geometry.source, view, geometry.flipped);
        ViewJob job = viewJob(geometry, view);
        job.image = pairImage(nullptr, view, 0);
        const TestImage image(view);
        for (int v = 0; v < view.height; ++v) {
            for (int u = 0; u < view.width; ++u) {
                const SourcePosition place = map.sampleAt(u, v);
                const Sight sight = rectifiedSight(job, u, v);
                ASSERT_EQ(sight.inside, insideImage(image.frame(), place)) << what << " at " << u << "," << v;
                if (sight.inside) {
                    largest = std::max<double>({largest, std::abs(sight.x - place.x), std::abs(sight.y - place.y)});
                }
                outside += sight.inside ? 0 : 1;
            }
        }
    }
};

TEST(PixelCode, SeesTheSamePlaceAsThePlainMapAndAgreesOnWhatIsInside) {
    SightComparison comparison;
    for (unsigned seed = 0; seed < 60; ++seed) {
        const RandomCase random(seed);
        comparison.add(random.geometry, random.view, "seed " + std::to_string(seed));
    }
    EXPECT_LT(comparison.largest, 0.002) << "pixels";
    EXPECT_GT(comparison.outside, 1000) << "the cases must look beyond the border";
}

TEST(PixelCode, AgreesOnViewPixelsThatLookExactlyAtTheBorder) {
    const Size size{640, 360};
    SightComparison comparison;
    for (const double focal : {0.19, 0.52, 0.81, 1.41}) {
        for (const bool flipped : {false, true}) {
            ViewGeometry geometry = geometryOf(cameraOf({"plain", focal, {}, 3.3, 1.7}, size), flipped);
            const Lens& lens = geometry.lens;
            geometry.rectified = {lens.fx, lens.fy, lens.cx + 10.5, lens.cy - 7.5};  // column 10 looks at -0.5
            comparison.add(geometry, size, std::to_string(focal));
        }
    }
    EXPECT_GT(comparison.outside, 0);
}

TEST(PixelCode, SamplesLikeThePlainViewAtEveryPlaceAndChromaSiting) {
    std::mt19937 random(3);
    for (const Size size : {Size{16, 9}, Size{15, 4}, Size{2, 1}, Size{1, 1}}) {
        const TestImage image =
            imageOf({size.width + size.width % 2, size.height}, Content::FULL_RANGE_NOISE, 0, random);
        const std::vector<std::uint32_t> pairs = pairsOf(image);
        for (const float siting : {0.0F, 0.25F, 0.5F}) {
            const PairImage pixels = pairImage(pairs.data(), size, siting);
            const YuyvFrame frame{image.bytes.data(), image.step, size.width, size.height, siting};
            for (int i = 0; i < 4000; ++i) {
                const auto along = [&](int count) {
                    return static_cast<float>(random() % 4096) / 4096.0F * static_cast<float>(count + 1) - 1;
                };
                const SourcePosition place{along(size.width), along(size.height)};
                const Sight sight{place.x, place.y, insideImage(frame, place)};
                unsigned char gray = 0;
                std::array<unsigned char, 4> bgra{};
                drawGray(frame, &place, 1, &gray);
                drawBgra(frame, &place, 1, bgra.data());
                const std::uint32_t drawn = bgraAt(pixels, sight);
                ASSERT_NEAR(grayAt(pixels, sight), gray, 1) << place.x << "," << place.y;
                for (unsigned channel = 0; channel < 4; ++channel) {
                    ASSERT_NEAR(drawn >> 8 * channel & 0xFF, bgra[channel], 1)
                        << named(size) << " siting " << siting << " at " << place.x << "," << place.y;
                }
            }
        }
    }
}

TEST(PixelCode, ReducesToTheSameBytesAsTheReducer) {
    const auto gpu = makeHostGpuRuntime();
    std::mt19937 random(4);
    for (const auto& [source, view] : std::vector<std::pair<Size, Size>>{{{64, 40}, {32, 20}},
                                                                         {{64, 40}, {63, 39}},
                                                                         {{66, 31}, {17, 9}},
                                                                         {{128, 9}, {5, 9}},
                                                                         {{2, 2}, {1, 1}},
                                                                         {{640, 360}, {333, 201}}}) {
        const TestImage image = imageOf(source, Content::FULL_RANGE_NOISE, 0, random);
        const std::vector<std::uint32_t> pairs = pairsOf(image);
        const Reducer reducer(source, view);
        std::vector<std::uint16_t> sums(reducer.scratchSize());
        std::vector<unsigned char> plain(reducer.bytes());
        reducer.reduceRows(image.frame(), plain.data(), 0, view.height, sums.data());
        ReducedImage reduced(*gpu);
        ASSERT_TRUE(reduced.prepare(source, view, nullptr));
        const ReduceJob job = reduced.jobOf(pairImage(pairs.data(), source, 0));
        for (int row = 0; row < view.height; ++row) {
            for (int pair = 0; pair < job.pairs_per_row; ++pair) {
                std::uint32_t expected = 0;
                std::memcpy(&expected,
                            &plain[static_cast<std::size_t>(row) * reducer.step() + 4U * static_cast<unsigned>(pair)],
                            4);
                ASSERT_EQ(reducedPairAt(job, pair, row), expected) << named(source) << " to " << named(view);
            }
        }
    }
}

}  // namespace
}  // namespace oru::rectifier
