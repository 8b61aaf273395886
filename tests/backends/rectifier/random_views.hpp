#pragma once

#include <cstdlib>
#include <string>

#include "backends/rectifier/images.hpp"

namespace oru::rectifier {

enum class Content { NATURAL, IN_GAMUT_NOISE, FULL_RANGE_NOISE };

inline TestImage imageOf(Size size, Content content, std::size_t padding, std::mt19937& random) {
    TestImage image(size, padding);
    const auto noise = [&](int range) { return static_cast<int>(random() % static_cast<unsigned>(range)); };
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            const double wave = std::sin(x * 0.07) + std::cos(y * 0.05);
            switch (content) {
                case Content::NATURAL:
                    image.setLuma(x, y, 120 + static_cast<int>(40 * wave) + noise(9));
                    image.setChroma(x, y, 128 + static_cast<int>(12 * wave) + noise(5));
                    break;
                case Content::IN_GAMUT_NOISE:
                    image.setLuma(x, y, 90 + noise(70));
                    image.setChroma(x, y, 112 + noise(32));
                    break;
                case Content::FULL_RANGE_NOISE:
                    image.setLuma(x, y, noise(256));
                    image.setChroma(x, y, noise(256));
                    break;
            }
        }
    }
    return image;
}

struct Error {
    int largest = 0;
    int x = 0;
    int y = 0;
    double mean = 0;
    bool padding_kept = true;
};

inline Error compare(const TestView& fast, const TestView& plain) {
    Error error;
    const auto used = static_cast<std::size_t>(fast.size.width) * (fast.gray ? 1 : 4);
    for (std::size_t i = 0; i < fast.bytes.size(); ++i) {
        if (i % fast.step >= used) {
            error.padding_kept = error.padding_kept && fast.bytes[i] == TestView::kUntouched;
            continue;
        }
        const int difference = std::abs(fast.bytes[i] - plain.bytes[i]);
        error.mean += difference;
        if (difference > error.largest) {
            error.largest = difference;
            error.x = static_cast<int>(i % fast.step / (fast.gray ? 1 : 4));
            error.y = static_cast<int>(i / fast.step);
        }
    }
    error.mean /= static_cast<double>(used) * fast.size.height;
    return error;
}

inline std::string named(Size size) {
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

/// A lens somewhere between long and short, an image and a view of any size, with a look beyond the border now and
/// then and now and then a view so wide that it shrinks the image.
struct RandomCase {
    explicit RandomCase(unsigned seed) : random(seed) {
        const auto between = [&](int low, int high) {
            return low + static_cast<int>(random() % static_cast<unsigned>(high - low + 1));
        };
        const auto part = [&] { return static_cast<double>(random() % 10001) / 10000; };
        source = seed % 8 == 0 ? Size{2 * between(1, 6), between(1, 6)} : Size{2 * between(8, 170), between(8, 200)};
        view = seed % 3 == 0   ? source
               : seed % 3 == 1 ? Size{(source.width + 1) / 2, (source.height + 1) / 2}
                               : Size{between(1, source.width), between(1, source.height)};
        NamedLens lens{"random", 0.35 + 0.5 * part(), {}, 60 * part() - 30, 60 * part() - 30};
        lens.distortion = {0.5 * part() - 0.25, 0.1 * part(),   0.002 * part() - 0.001, 0.002 * part() - 0.001,
                           0.01 * part(),       0.6 * part(),   0.1 * part(),           0.01 * part(),
                           0.002 * part(),      0.001 * part(), 0.002 * part(),         0.001 * part()};
        geometry = geometryOf(cameraOf(lens, source), between(0, 1) == 1);
        if (geometry.rectified.fx == 0) {
            geometry.rectified = {1.0 * source.width, 1.0 * source.width, source.width / 2.0, source.height / 2.0};
        }
        const double zoom = seed % 5 == 0 ? 0.25 + 0.6 * part() : (seed % 5 == 1 ? 2.5 : 1.0);
        geometry.rectified.fx *= zoom;
        geometry.rectified.fy *= zoom;
        content = static_cast<Content>(between(0, 2));
        padding = static_cast<std::size_t>(between(0, 1) * between(1, 70));
    }

    std::mt19937 random;
    Size source{};
    Size view{};
    ViewGeometry geometry{};
    Content content{};
    std::size_t padding = 0;
};

}  // namespace oru::rectifier
