#pragma once

#include "oru/Mat.hpp"
#include "oru/types.hpp"

namespace oru {

/// Turns the raw image of the last frame into views. Threads: one at a time.
class MonoRectifier {
public:
    virtual ~MonoRectifier() = default;

    /// Prepares for the raw intrinsics, whose image_size is the size of the frames; returns the rectified ones
    /// (square pixels, no empty border). With `flipped` every view is turned by 180 degrees.
    virtual CameraParameters setup(CameraParameters& raw, CUstream_st* stream, bool flipped) = 0;
    /// Takes note of a new frame (U8_C2, YUYV), which the views show until the next process() or free(). It is not
    /// copied: until then the caller keeps its memory alive and unchanged, though the container may move, and takes
    /// further frames into other memory.
    virtual void process(Mat& image, CUstream_st* stream) = 0;
    /// Writes a view of the noted frame at `size` into `destination`, whose size and type are already right; memory
    /// that it lacks is added. Complete when it returns. 0 ok; otherwise the view is black: no frame, or one of another
    /// size.
    virtual int getView(VIEW view, Resolution size, Mat& destination, MEM memory, CUstream_st* stream) = 0;
    /// Forgets frame and maps; harmless when repeated.
    virtual void free() = 0;
};

}  // namespace oru
