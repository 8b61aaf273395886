#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>

#include "flow/koruone/tool.hpp"
#include "koruone/output/ContactSheet.hpp"
#include "koruone/output/TimingHistogram.hpp"
#include "koruone/output/calibration_formats.hpp"
#include "koruone/output/half_blocks.hpp"
#include "koruone/output/packed_view.hpp"
#include "koruone/output/picture_file.hpp"
#include "koruone/output/png_file.hpp"
#include "koruone/output/time_plot.hpp"
#include "koruone/runs/PacketClock.hpp"
#include "koruone/runs/frame_range.hpp"
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

TEST(CalibrationFormats, GoOutAndBackExactlyWhereTheFormatHoldsTheLens) {
    const oru::Resolution size{1920, 1200};
    const oru::Lens every{
        1068.42,
        1067.95,
        967.31,
        594.62,
        {0.38, 0.016, 0.0004, -0.0003, 0.0002, 0.54, 0.057, 0.0003, -0.0005, 0.0002, 0.0005, -0.0001}};
    const auto first = [&](std::size_t count) {
        oru::Lens lens = every;
        std::fill(lens.distortion.begin() + static_cast<std::ptrdiff_t>(count), lens.distortion.end(), 0.0);
        return lens;
    };
    const struct {
        CalibrationFormat format;
        oru::Lens lens;
        const char* mark;
    } cases[] = {{CalibrationFormat::OPENCV, every, "!!opencv-matrix"},
                 {CalibrationFormat::ROS, first(8), "rational_polynomial"},
                 {CalibrationFormat::ROS, first(5), "plumb_bob"},
                 {CalibrationFormat::KALIBR, first(4), "radtan"}};
    const oru::TemporaryDirectory folder;
    for (const auto& [format, lens, mark] : cases) {
        const auto written = writeCalibrationAs(format, {lens, size}, "SN1");
        ASSERT_TRUE(written.has_value());
        EXPECT_EQ(written->fitted_within, 0.0);
        EXPECT_NE(written->text.find(mark), std::string::npos) << written->text;
        std::string error;
        const auto read = readForeignCalibration(folder.write("a.yaml", written->text), error);
        ASSERT_TRUE(read.has_value()) << error;
        EXPECT_EQ(read->lens, lens) << mark;
        EXPECT_EQ(read->size, size);
    }
    const auto fitted = writeCalibrationAs(CalibrationFormat::ROS, {every, size}, "SN1");
    ASSERT_TRUE(fitted.has_value());
    EXPECT_GT(fitted->fitted_within, 0.0) << "the prism terms are told, not dropped";
    EXPECT_LT(fitted->fitted_within, 1.0);
}

TEST(CalibrationFormats, FilesOfOthersAreReadOrRefusedWithAReason) {
    const oru::TemporaryDirectory folder;
    const struct {
        const char* text;
        const char* reason;  // empty when it is one
    } cases[] = {
        {"%YAML:1.0\n---\ncalibration_time: \"Mon\"\nimage_width: 1920\nimage_height: 1200\ncamera_matrix: "
         "!!opencv-matrix\n   rows: 3\n   cols: 3\n   dt: d\n   data: [ 1.0e+03, 0., 960., 0., 1.0e+03, 600., 0., 0., "
         "1. ]\ndistortion_coefficients: !!opencv-matrix\n   rows: 5\n   cols: 1\n   dt: d\n   data: [ -.1, .01, 0., "
         "0., "
         "1.0e-03 ]\n",
         ""},
        {"cam0:\n  cam_overlaps: []\n  camera_model: pinhole\n  distortion_coeffs: [-0.2, 0.05, 0.0, 0.0]\n"
         "  distortion_model: radtan\n  intrinsics: [460.0, 459.0, 367.0, 248.0]\n  resolution: [752, 480]\n",
         ""},
        {"cam0:\n  camera_model: pinhole\n  distortion_model: equidistant\n  distortion_coeffs: [0, 0, 0, 0]\n"
         "  intrinsics: [460.0, 459.0, 367.0, 248.0]\n  resolution: [752, 480]\n",
         "equidistant"},
        {"image_width: 640\nimage_height: 480\n", "camera_matrix"},
        {"image_width: 640\nimage_height: 480\ncamera_matrix: {data: [1, 0, 1, 0, .nan, 1, 0, 0, 1]}\n", "no number"},
        {"[1, 2", ""},
    };
    for (const auto& [text, reason] : cases) {
        std::string error;
        const bool good = readForeignCalibration(folder.write("a.yaml", text), error).has_value();
        EXPECT_EQ(good, *reason == '\0' && *text != '[') << text << error;
        EXPECT_NE(error.find(reason), std::string::npos) << error;
        EXPECT_EQ(error.empty(), good);
    }
    std::string error;
    EXPECT_FALSE(readForeignCalibration(folder.path("none"), error).has_value());
    EXPECT_FALSE(error.empty());
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

oru::Mat view(unsigned char blue, unsigned char green, unsigned char red) {
    oru::Mat image;
    EXPECT_EQ(image.alloc({16, 12}, oru::U8_C4, oru::CPU), oru::SUCCESS);
    for (std::size_t y = 0; y < 12; ++y) {
        auto* row = image.getPtr<unsigned char>(oru::CPU) + y * image.getStepBytes(oru::CPU);
        for (std::size_t x = 0; x < 16; ++x) {
            const unsigned char pixel[] = {blue, green, red, 255};
            std::copy(std::begin(pixel), std::end(pixel), row + 4 * x);
        }
    }
    return image;
}

TEST(PackedView, IsBt601InVideoRange) {
    const struct {
        unsigned char bgr[3];
        int yuv[3];
    } cases[] = {{{0, 0, 0}, {16, 128, 128}},  {{255, 255, 255}, {235, 128, 128}}, {{255, 0, 0}, {41, 240, 110}},
                 {{0, 255, 0}, {145, 54, 34}}, {{0, 0, 255}, {82, 90, 240}},       {{128, 128, 128}, {126, 128, 128}}};
    for (const auto& sample : cases) {
        oru::Mat packed;
        ASSERT_EQ(packed.alloc({16, 12}, oru::U8_C2, oru::CPU), oru::SUCCESS);

        packView(view(sample.bgr[0], sample.bgr[1], sample.bgr[2]), packed);

        const auto* pixels = packed.getPtr<unsigned char>(oru::CPU) + 5 * packed.getStepBytes(oru::CPU);
        EXPECT_NEAR(pixels[0], sample.yuv[0], 1);
        EXPECT_NEAR(pixels[1], sample.yuv[1], 1);
        EXPECT_NEAR(pixels[2], sample.yuv[0], 1);
        EXPECT_NEAR(pixels[3], sample.yuv[2], 1);
    }
}

TEST(HalfBlocks, ShowTwoRowsOfPixelsInALine) {
    const oru::Mat image = view(1, 20, 255);

    const std::string text = halfBlocks(viewOf(image));

    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 6);
    EXPECT_EQ(text.find("\x1b[38;2;255;20;1;48;2;255;20;1m\xE2\x96\x80"), 0U);
}

TEST(FramePlace, IsANumberATimeFromTheStartOrNanoseconds) {
    EXPECT_EQ(parseFramePlace("120")->number, 120);
    EXPECT_EQ(parseFramePlace("2.5")->seconds, 2.5);
    EXPECT_EQ(parseFramePlace("2s")->seconds, 2.0);
    EXPECT_EQ(parseFramePlace("1:02.5")->seconds, 62.5);
    EXPECT_EQ(parseFramePlace("1700000000000000001")->time, 1'700'000'000'000'000'001U);
    for (const char* wrong : {"", "s", "-1", "1:", ":1", "soon", "1e400", "nan", "99999999999", "0x10"}) {
        EXPECT_FALSE(parseFramePlace(wrong).has_value()) << wrong;
    }
}

TEST(RateChooser, TakesAFrameWheneverItsTimeHasCome) {
    const auto taken = [](double wanted, double source, int frames) {
        RateChooser chooser(wanted, source);
        int count = 0;
        for (int i = 0; i < frames; ++i) {
            // A jitter of a millisecond either way.
            const auto jitter = static_cast<oru::Timestamp>(i % 3) * 1'000'000U;
            count += chooser.takes(1'000'000'000U + static_cast<oru::Timestamp>(i * 1e9 / source) + jitter) ? 1 : 0;
        }
        return count;
    };
    EXPECT_EQ(taken(0.0, 30.0, 300), 300);
    EXPECT_EQ(taken(15.0, 30.0, 300), 150);
    EXPECT_EQ(taken(10.0, 30.0, 300), 100);
    EXPECT_NEAR(taken(12.0, 30.0, 300), 120, 1);
    EXPECT_EQ(taken(60.0, 30.0, 300), 300);
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
