#pragma once

#include <memory>

#include "koruone/output/FrameTarget.hpp"

namespace koruone {

/// Another recording, with every fact of the frames; takes them only as the recording's readFrame gives them.
std::unique_ptr<FrameTarget> makeRecordingTarget();
/// An MP4 file with one H.264 or H.265 track, for players. No samples.
std::unique_ptr<FrameTarget> makeVideoTarget();

}  // namespace koruone
