#pragma once

namespace oru::rectifier {

/// Tells people about the camera's images: a warning in the log, or on the standard error stream in a build without
/// the log (ORU_GPU_ONLY). Any thread.
void warn(const char* text);

}  // namespace oru::rectifier
