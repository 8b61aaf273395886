#pragma once

#include "oru/Mat.hpp"
#include "oru/String.hpp"
#include "oru/error_code.hpp"
#include "oru/export.hpp"

namespace oru {

/// The graphics processor that draws the views, in words for people; "none", and why, where the host draws them.
/// Threads: any.
ORU_API String gpuDescription();

/// Copies an image's pixels from its device memory to its host memory, both of which it holds.
/// Threads: one at a time for an image.
/// @retval INVALID_CALL one of the memories is not held   @retval FAILURE the copy failed
ORU_API ERROR_CODE copyToHost(Mat& image);

}  // namespace oru
