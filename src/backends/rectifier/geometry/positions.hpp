#pragma once

namespace oru::rectifier {

/// Where a sample is taken, in pixels; whole numbers are pixel centres.
struct SourcePosition {
    float x;
    float y;
};

/// A pinhole without distortion, in pixels.
struct Intrinsics {
    double fx;
    double fy;
    double cx;
    double cy;
};

}  // namespace oru::rectifier
