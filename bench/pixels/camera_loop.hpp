#pragma once

namespace oru::bench {

/// Milliseconds of CPU time a frame on the calling thread, medians.
struct LoopCost {
    int frames;  // 0: the virtual camera could not be opened
    double ours_ms;
    double opencv_ms;
};

/// grab() and retrieveImage of the rectified BGRA view from a virtual camera at 1920x1200 and 30 frames a second,
/// against the copy, cvtColor and remap of the very same frames.
LoopCost measureCameraLoop(int frames);

}  // namespace oru::bench
