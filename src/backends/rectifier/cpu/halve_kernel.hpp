#pragma once

#include "backends/rectifier/reference/yuyv_frame.hpp"

namespace oru::rectifier {

/// Makes rows [firstRow, endRow) of the image of half the width and height, byte for byte what Reducer makes for that
/// size. The frame's width is a multiple of 4 and its height even. Threads: any.
void halveRows(const YuyvFrame& frame, unsigned char* output, std::size_t outputStep, int firstRow, int endRow);

/// The same of luma alone, one byte a pixel: the plain gray view of half size.
void halveLumaRows(const YuyvFrame& frame, unsigned char* output, std::size_t outputStep, int firstRow, int endRow);

}  // namespace oru::rectifier
