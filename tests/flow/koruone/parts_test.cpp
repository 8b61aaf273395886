#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "flow/koruone/tool.hpp"
#include "koruone/output/ContactSheet.hpp"
#include "koruone/output/TimingHistogram.hpp"
#include "koruone/output/png_file.hpp"
#include "koruone/output/time_plot.hpp"
#include "koruone/runs/PacketClock.hpp"
#include "shared/input_options.hpp"

namespace koruone {
namespace {

using oru::readPng;

constexpr uint64_t kPeriodNs = 2'500'000;

std::vector<unsigned char> noise(std::size_t bytes) {
    std::mt19937 random(7);
    std::vector<unsigned char> result(bytes);
    std::generate(result.begin(), result.end(), [&] { return static_cast<unsigned char>(random()); });
    return result;
}

TEST(TimingHistogram, GivesPercentilesWithinOnePercent) {
    TimingHistogram times;
    for (int us = 1; us <= 10'000; ++us) {
        times.record(std::chrono::microseconds(us));
    }

    EXPECT_NEAR(times.percentileUs(50.0), 5'000.0, 50.0);
    EXPECT_NEAR(times.percentileUs(99.0), 9'900.0, 99.0);
    EXPECT_EQ(times.percentileUs(100.0), 10'000.0);
    EXPECT_EQ(TimingHistogram().percentileUs(50.0), 0.0);
}

TEST(TimingHistogram, HoldsEveryDuration) {
    for (const int64_t ns : {int64_t{0}, int64_t{1}, int64_t{127}, int64_t{128}, int64_t{129}, int64_t{255},
                             int64_t{256}, int64_t{1'000'000'007}, std::numeric_limits<int64_t>::max()}) {
        TimingHistogram times;
        times.record(std::chrono::nanoseconds(ns));

        EXPECT_EQ(times.percentileUs(50.0), static_cast<double>(ns) / 1000.0) << ns;
    }
}

TEST(PacketClock, FindsGapsAndCountsWhatIsMissing) {
    PacketClock clock;
    uint64_t time = 1'000'000'000;
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(clock.add(time), i == 0 ? PacketClock::FIRST : PacketClock::NEXT);
        time += kPeriodNs;
    }
    EXPECT_EQ(clock.add(time + 3 * kPeriodNs), PacketClock::GAP);
    EXPECT_EQ(clock.add(time + 3 * kPeriodNs), PacketClock::REPEATED);
    EXPECT_EQ(clock.add(time), PacketClock::BACKWARDS);

    const PacketClock::Summary summary = clock.summary();

    EXPECT_EQ(summary.packets, 102U);
    EXPECT_EQ(summary.gaps, 1U);
    EXPECT_EQ(summary.missing, 3U);
    EXPECT_EQ(summary.out_of_order, 1U);
    EXPECT_DOUBLE_EQ(summary.median_ms, 2.5);
    EXPECT_DOUBLE_EQ(summary.largest_ms, 10.0);
}

TEST(PngEncoder, WritesWhatAnyDecoderReads) {
    constexpr std::size_t kWidth = 37;
    constexpr std::size_t kHeight = 11;
    const oru::doubles::TemporaryDirectory directory;
    PngEncoder encoder;
    for (const bool gray : {false, true, false}) {
        const std::size_t step = kWidth * (gray ? 1 : 4) + 5;
        const std::vector<unsigned char> pixels = noise(step * kHeight);
        std::string error;

        ASSERT_TRUE(encoder.write(directory.path("a.png"), {pixels.data(), kWidth, kHeight, step, gray}, error));
        const oru::DecodedPng read = readPng(directory.path("a.png"));

        ASSERT_EQ(read.width, kWidth);
        ASSERT_EQ(read.height, kHeight);
        ASSERT_EQ(read.gray, gray);
        for (std::size_t y = 0; y < kHeight; ++y) {
            for (std::size_t x = 0; x < kWidth; ++x) {
                const unsigned char* from = pixels.data() + y * step + x * (gray ? 1 : 4);
                const unsigned char* to = read.pixels.data() + (y * kWidth + x) * (gray ? 1 : 3);
                ASSERT_EQ(to[0], gray ? from[0] : from[2]) << x << " " << y;
                ASSERT_TRUE(gray || (to[1] == from[1] && to[2] == from[0])) << x << " " << y;
            }
        }
    }
}

TEST(PngEncoder, LeavesNothingBehindWhenItFails) {
    const std::vector<unsigned char> pixels = noise(400);
    PngEncoder encoder;
    std::string error;

    EXPECT_FALSE(encoder.write("/nowhere/a.png", {pixels.data(), 10, 10, 40, false}, error));
    EXPECT_EQ(error, "cannot write /nowhere/a.png: No such file or directory");
    EXPECT_FALSE(encoder.write("/dev/full", {pixels.data(), 10, 10, 40, false}, error));
    EXPECT_NE(error.find("No space left"), std::string::npos) << error;
}

TEST(ContactSheet, KeepsImagesEvenlyOverALongRun) {
    const oru::doubles::TemporaryDirectory directory;
    ContactSheet sheet;
    for (uint64_t frame = 0; frame < 1000; ++frame) {
        // The brightness tells the frame: 0 at the begin, 249 at the end.
        const std::vector<unsigned char> pixels(64 * 48, static_cast<unsigned char>(frame / 4));
        sheet.offer(frame, {pixels.data(), 64, 48, 64, true});
    }
    PngEncoder encoder;
    std::string error;

    ASSERT_TRUE(sheet.write(directory.path("sheet.png"), encoder, error)) << error;
    const oru::DecodedPng image = readPng(directory.path("sheet.png"));
    const auto [darkest, lightest] = std::minmax_element(image.pixels.begin(), image.pixels.end());

    EXPECT_EQ(*darkest, 0) << "the first frame";
    EXPECT_GE(*lightest, 230) << "a late frame";
    EXPECT_LT(image.width * image.height, 2'000'000U);
}

TEST(TimePlot, StaysSmallAndKeepsPeaks) {
    TimePlot plot({{"Level", "m", {"a"}}});
    for (int i = 0; i < 100'000; ++i) {
        const double value = i == 54'321 ? 1000.0 : 0.0;
        plot.add(i * 0.001, std::span(&value, 1), false);
    }

    const std::string svg = plot.svg("a < b & c");

    EXPECT_LT(svg.size(), 200'000U);
    EXPECT_NE(svg.find(">1000<"), std::string::npos) << "the axis does not reach the peak";
    EXPECT_NE(svg.find("a &lt; b &amp; c"), std::string::npos);
}

TEST(TimePlot, DrawsAFewTicksWhateverTheValuesAre) {
    for (const double value : {0.0, 1e-30, 1013.25, 1e20, -3e38}) {
        TimePlot plot({{"Level", "m", {"a"}}});
        plot.add(0.0, std::span(&value, 1), false);
        plot.add(1.0, std::span(&value, 1), false);

        const std::string svg = plot.svg("");

        std::size_t rules = 0;
        for (std::size_t at = svg.find("<line"); at != svg.npos; at = svg.find("<line", at + 1)) {
            ++rules;
        }
        EXPECT_GE(rules, 8U) << value;
        EXPECT_LE(rules, 24U) << value;
    }
}

TEST(TimePlot, BreaksTheLineAtAGap) {
    TimePlot plot({{"Level", "m", {"a"}}});
    for (int i = 0; i < 10; ++i) {
        const double value = i;
        plot.add(i < 5 ? i : i + 20, std::span(&value, 1), i == 5);
    }

    const std::string svg = plot.svg("");

    const std::size_t first = svg.find("<polyline");
    ASSERT_NE(first, std::string::npos);
    EXPECT_NE(svg.find("<polyline", first + 1), std::string::npos) << "one line across the gap";
}

TEST(InputOptions, ParsesSizes) {
    EXPECT_EQ(parseSize("640x480"), (oru::Resolution{640, 480}));
    EXPECT_EQ(parseSize("1X1"), (oru::Resolution{1, 1}));
    for (const char* text :
         {"", "x", "640", "640x", "x480", "0x5", "-1x5", "640x480x2", " 640x480", "1e3x5", "99999x5"}) {
        EXPECT_FALSE(parseSize(text)) << text;
    }
}

}  // namespace
}  // namespace koruone
