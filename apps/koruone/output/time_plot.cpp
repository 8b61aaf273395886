#include "koruone/output/time_plot.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace koruone {
namespace {

constexpr std::size_t kMostBuckets = 2000;
constexpr double kWidth = 1000.0;
constexpr double kPanelHeight = 240.0;
constexpr double kLeft = 80.0;
constexpr double kRight = 20.0;
constexpr double kTop = 50.0;
constexpr double kPanelTop = 30.0;
constexpr double kPanelBottom = 30.0;
constexpr double kBottom = 25.0;
constexpr double kLegendEntry = 90.0;
constexpr int kTicks = 8;
constexpr std::array kColours{"#c0392b", "#1e8449", "#2471a3"};

std::string escape(const std::string& text) {
    std::string result;
    for (const char character : text) {
        switch (character) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            default:
                result += static_cast<unsigned char>(character) < ' ' ? ' ' : character;
        }
    }
    return result;
}

/// 1, 2 or 5 times a power of ten, so that about kTicks steps fill the span.
double tickStep(double span) {
    const double raw = span / kTicks;
    const double power = std::pow(10.0, std::floor(std::log10(raw)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (raw <= factor * power) {
            return factor * power;
        }
    }
    return 10.0 * power;
}

/// The multiples of the step from low to high.
std::vector<double> ticksOf(double low, double high, double step) {
    const double first = std::ceil(low / step);
    const int count = static_cast<int>(std::floor(high / step - first + 1e-6)) + 1;
    std::vector<double> ticks;
    for (int i = 0; i < count; ++i) {
        ticks.push_back((first + i) * step);
    }
    return ticks;
}

std::string tickText(double value, double step) {
    const int decimals = std::clamp(static_cast<int>(std::ceil(-std::log10(step))), 0, 9);
    return fmt::format("{:.{}f}", std::abs(value) < step / 2.0 ? 0.0 : value, decimals);
}

std::string text(double x, double y, const char* anchor, int size, const std::string& content) {
    return fmt::format("<text x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"{}\" font-size=\"{}\">{}</text>\n", x, y, anchor,
                       size, escape(content));
}

std::string rule(double x1, double y1, double x2, double y2, const char* colour, double width) {
    return fmt::format(
        "<line x1=\"{:.1f}\" y1=\"{:.1f}\" x2=\"{:.1f}\" y2=\"{:.1f}\" stroke=\"{}\" stroke-width=\"{}\"/>\n", x1, y1,
        x2, y2, colour, width);
}

}  // namespace

/// The rectangle of a panel and the values at its edges.
struct TimePlot::Frame {
    double top, height;
    double t0, t1;
    double low, high;

    [[nodiscard]] double x(double t) const { return kLeft + (t - t0) / (t1 - t0) * (kWidth - kLeft - kRight); }
    [[nodiscard]] double y(double value) const { return top + (high - value) / (high - low) * height; }

    [[nodiscard]] std::string grid() const {
        std::string result;
        const double timeStep = tickStep(t1 - t0);
        for (const double t : ticksOf(t0, t1, timeStep)) {
            result += rule(x(t), top, x(t), top + height, "#dddddd", 1.0);
            result += text(x(t), top + height + 16.0, "middle", 12, tickText(t, timeStep));
        }
        const double valueStep = tickStep(high - low);
        for (const double v : ticksOf(low, high, valueStep)) {
            result += rule(kLeft, y(v), kWidth - kRight, y(v), "#dddddd", 1.0);
            result += text(kLeft - 6.0, y(v) + 4.0, "end", 12, tickText(v, valueStep));
        }
        result += fmt::format(
            "<rect x=\"{:.1f}\" y=\"{:.1f}\" width=\"{:.1f}\" height=\"{:.1f}\" fill=\"none\" stroke=\"#555555\"/>\n",
            kLeft, top, kWidth - kLeft - kRight, height);
        return result;
    }
};

TimePlot::TimePlot(std::vector<PlotPanel> given) : panels(std::move(given)) {}

void TimePlot::add(double seconds, std::span<const double> values, bool afterGap) {
    Bucket sample;
    sample.begin = sample.end = seconds;
    sample.after_gap = afterGap;
    sample.low.fill(std::numeric_limits<double>::infinity());
    sample.high.fill(-std::numeric_limits<double>::infinity());
    for (std::size_t i = 0; i < std::min(values.size(), kMostLines); ++i) {
        if (std::isfinite(values[i])) {
            sample.low[i] = sample.high[i] = values[i];
        }
    }
    if (inLast < bucketSize && !buckets.empty() && !afterGap) {
        merge(buckets.back(), sample);
        ++inLast;
        return;
    }
    if (buckets.size() == kMostBuckets) {
        mergePairs();
    }
    buckets.push_back(sample);
    inLast = 1;
}

void TimePlot::merge(Bucket& into, const Bucket& later) {
    into.end = later.end;
    for (std::size_t i = 0; i < kMostLines; ++i) {
        into.low[i] = std::min(into.low[i], later.low[i]);
        into.high[i] = std::max(into.high[i], later.high[i]);
    }
}

void TimePlot::mergePairs() {
    bucketSize *= 2;
    for (std::size_t i = 0; i < kMostBuckets / 2; ++i) {
        Bucket pair = buckets[2 * i];
        merge(pair, buckets[2 * i + 1]);
        pair.after_gap = pair.after_gap || buckets[2 * i + 1].after_gap;
        buckets[i] = pair;
    }
    buckets.resize(kMostBuckets / 2);
}

TimePlot::Frame TimePlot::frameOf(std::size_t panel, std::size_t firstLine) const {
    Frame frame{};
    frame.top = kTop + static_cast<double>(panel) * (kPanelHeight + kPanelTop + kPanelBottom) + kPanelTop;
    frame.height = kPanelHeight;
    frame.t0 = buckets.empty() ? 0.0 : buckets.front().begin;
    frame.t1 = buckets.empty() ? 1.0 : std::max(buckets.back().end, frame.t0 + 1e-3);
    frame.low = std::numeric_limits<double>::infinity();
    frame.high = -frame.low;
    for (const Bucket& bucket : buckets) {
        for (std::size_t i = firstLine; i < firstLine + panels[panel].lines.size(); ++i) {
            frame.low = std::min(frame.low, bucket.low[i]);
            frame.high = std::max(frame.high, bucket.high[i]);
        }
    }
    if (frame.low > frame.high) {
        frame.low = frame.high = 0.0;
    }
    // Relative to the values, too: what rounding swallows would leave no span to divide.
    const double largest = std::max(std::abs(frame.low), std::abs(frame.high));
    const double padding = std::max({(frame.high - frame.low) * 0.05, largest * 1e-6, 1e-3});
    frame.low -= padding;
    frame.high += padding;
    return frame;
}

std::string TimePlot::gapsSvg(const Frame& frame) const {
    std::string result;
    for (std::size_t i = 1; i < buckets.size(); ++i) {
        if (buckets[i].after_gap) {
            const double x = frame.x(buckets[i - 1].end);
            const double width = std::max(frame.x(buckets[i].begin) - x, 1.0);
            result +=
                fmt::format("<rect x=\"{:.1f}\" y=\"{:.1f}\" width=\"{:.1f}\" height=\"{:.1f}\" fill=\"#f5c6c0\"/>\n",
                            x, frame.top, width, frame.height);
        }
    }
    return result;
}

std::string TimePlot::lineSvg(const Frame& frame, std::size_t line, const char* colour) const {
    std::string result;
    std::string points;
    const auto finish = [&] {
        if (!points.empty()) {
            result += fmt::format(
                "<polyline points=\"{}\" fill=\"none\" stroke=\"{}\" stroke-width=\"1.2\" stroke-linejoin=\"round\" "
                "stroke-linecap=\"round\"/>\n",
                points, colour);
        }
        points.clear();
    };
    for (const Bucket& bucket : buckets) {
        if (bucket.after_gap) {
            finish();
        }
        if (bucket.low[line] > bucket.high[line]) {
            continue;
        }
        const double x = frame.x((bucket.begin + bucket.end) / 2.0);
        points += fmt::format("{:.2f},{:.2f} ", x, frame.y(bucket.low[line]));
        if (bucket.high[line] != bucket.low[line]) {
            points += fmt::format("{:.2f},{:.2f} ", x, frame.y(bucket.high[line]));
        }
    }
    finish();
    return result;
}

std::string TimePlot::panelSvg(std::size_t panel, std::size_t firstLine) const {
    const Frame frame = frameOf(panel, firstLine);
    const PlotPanel& what = panels[panel];
    std::string result = gapsSvg(frame) + frame.grid();
    result += text(kLeft, frame.top - 8.0, "start", 14, fmt::format("{} ({})", what.quantity, what.unit));
    for (std::size_t i = 0; i < what.lines.size(); ++i) {
        const char* colour = kColours[i % kColours.size()];
        const double x = kWidth - kRight - kLegendEntry * static_cast<double>(what.lines.size() - i);
        result += rule(x, frame.top - 12.0, x + 20.0, frame.top - 12.0, colour, 2.5);
        result += text(x + 26.0, frame.top - 8.0, "start", 12, what.lines[i]);
        result += lineSvg(frame, firstLine + i, colour);
    }
    return result;
}

std::string TimePlot::svg(const std::string& title) const {
    const double height =
        kTop + static_cast<double>(panels.size()) * (kPanelHeight + kPanelTop + kPanelBottom) + kBottom;
    std::string result = fmt::format(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0:.0f}\" height=\"{1:.0f}\" viewBox=\"0 0 {0:.0f} "
        "{1:.0f}\" font-family=\"sans-serif\" fill=\"#222222\">\n<rect width=\"100%\" height=\"100%\" "
        "fill=\"white\"/>\n",
        kWidth, height);
    result += text(kLeft, 28.0, "start", 17, title);
    std::size_t line = 0;
    for (std::size_t panel = 0; panel < panels.size(); ++panel) {
        result += panelSvg(panel, line);
        line += panels[panel].lines.size();
    }
    result += text((kLeft + kWidth - kRight) / 2.0, height - 12.0, "middle", 13, "time since the first packet (s)");
    return result + "</svg>\n";
}

}  // namespace koruone
