#pragma once

namespace oru {

// Area tags, each the first argument of its messages; some end in a blank.
inline constexpr const char* kTagKoru = "[KORU]";
inline constexpr const char* kTagInit = "[Init] ";
inline constexpr const char* kTagStreaming = "[Streaming] ";
inline constexpr const char* kTagMat = "[Mat] ";

inline constexpr const char* kNotOpenText = "{} oru::Camera::Open has not been called, no Camera instance running.";

}  // namespace oru
