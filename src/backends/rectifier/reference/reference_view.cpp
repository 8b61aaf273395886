#include "backends/rectifier/reference/reference_view.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "backends/rectifier/reference/bt601.hpp"

namespace oru::rectifier {
namespace {

constexpr int kFirstU = 1;
constexpr int kFirstV = 3;

/// Two neighbouring samples along one axis and how far the position lies towards the second.
struct Between {
    int first;
    int second;
    float part;
};

Between between(float position, int count) {
    const float clamped = std::clamp(position, 0.0F, static_cast<float>(count - 1));
    const int first = static_cast<int>(clamped);
    return {first, std::min(first + 1, count - 1), clamped - static_cast<float>(first)};
}

float mix(float a, float b, float part) {
    return a + (b - a) * part;
}

struct Rows {
    const unsigned char* upper;
    const unsigned char* lower;
    float part;

    /// Interpolates one component: `spacing` bytes from sample to sample, `offset` bytes to the first.
    [[nodiscard]] float sample(Between columns, int spacing, int offset) const {
        const int left = columns.first * spacing + offset;
        const int right = columns.second * spacing + offset;
        return mix(mix(upper[left], upper[right], columns.part), mix(lower[left], lower[right], columns.part), part);
    }
};

Rows rowsAt(const YuyvFrame& frame, float y) {
    const Between rows = between(y, frame.height);
    return {frame.row(rows.first), frame.row(rows.second), rows.part};
}

unsigned char rounded(float value) {
    return static_cast<unsigned char>(value + 0.5F);
}

}  // namespace

bool insideImage(const YuyvFrame& frame, SourcePosition position) {
    return position.x >= -0.5F && position.x <= static_cast<float>(frame.width) - 0.5F && position.y >= -0.5F &&
           position.y <= static_cast<float>(frame.height) - 0.5F;
}

float sampleLuma(const YuyvFrame& frame, SourcePosition position) {
    return rowsAt(frame, position.y).sample(between(position.x, frame.width), 2, 0);
}

Yuv sampleYuv(const YuyvFrame& frame, SourcePosition position) {
    const Rows rows = rowsAt(frame, position.y);
    const Between chroma = between((position.x - frame.chroma_siting) / 2, frame.chromaColumns());
    return {rows.sample(between(position.x, frame.width), 2, 0), rows.sample(chroma, 4, kFirstU),
            rows.sample(chroma, 4, kFirstV)};
}

Bgr toBgr(Yuv yuv) {
    const float y = (yuv.y - 16) * static_cast<float>(kLuma);
    const float u = yuv.u - 128;
    const float v = yuv.v - 128;
    const auto clamped = [](float value) { return std::clamp(value, 0.0F, 255.0F); };
    return {clamped(y + u * static_cast<float>(kBlueOfU)),
            clamped(y + u * static_cast<float>(kGreenOfU) + v * static_cast<float>(kGreenOfV)),
            clamped(y + v * static_cast<float>(kRedOfV))};
}

void drawBgra(const YuyvFrame& frame, const SourcePosition* positions, std::size_t count, unsigned char* out) {
    for (std::size_t i = 0; i < count; ++i, out += 4) {
        Bgr color{};
        if (insideImage(frame, positions[i])) {
            color = toBgr(sampleYuv(frame, positions[i]));
        }
        out[0] = rounded(color.b);
        out[1] = rounded(color.g);
        out[2] = rounded(color.r);
        out[3] = 255;
    }
}

void drawGray(const YuyvFrame& frame, const SourcePosition* positions, std::size_t count, unsigned char* out) {
    for (std::size_t i = 0; i < count; ++i) {
        out[i] = insideImage(frame, positions[i]) ? rounded(sampleLuma(frame, positions[i])) : 0;
    }
}

void drawBlack(const ViewTarget& target) {
    for (int row = 0; row < target.height; ++row) {
        unsigned char* out = target.row(row);
        std::memset(out, 0, static_cast<std::size_t>(target.width) * target.pixelBytes());
        for (unsigned char* alpha = out + 3; !target.gray && alpha < out + 4 * target.width; alpha += 4) {
            *alpha = 255;
        }
    }
}

}  // namespace oru::rectifier
