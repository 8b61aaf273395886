#pragma once

#include <cstdint>
#include <vector>

#include "backends/rlx/file/open_recording.hpp"

namespace oru::rlx {

/// Which images a walk checks; records and framing are always checked.
enum class ImageCheck {
    TAIL,  ///< those of the last two seconds: what a crash may have left half written
    ALL,
};

/// A stretch of the file behind its head that belongs to no whole frame.
struct Hole {
    uint64_t offset = 0;
    uint64_t size = 0;
};

/// Every whole frame of a file, found without its index.
struct Scan {
    std::vector<IndexEntry> entries;
    std::vector<Hole> holes;      ///< between head and the last whole frame
    bool head_fits = true;        ///< the first whole frame begins behind the head that belongs to the header
    uint64_t clusters_end = 0;    ///< end of the last whole frame
    uint64_t bad_images = 0;      ///< frames left out because of their image
    uint64_t missing_frames = 0;  ///< numbers that are missing between the whole frames
    bool stopped = false;
};

/// Reads the file from its head to its end; behind a damaged place it goes on at the next whole frame (FrameSearch).
/// `progress` is told 0 until the images are checked.
/// What a stopped walk gives is incomplete (`stopped`).
[[nodiscard]] Scan scanFrames(const OpenedFile& recording, ImageCheck check, const RecordingProgress& progress = {});

}  // namespace oru::rlx
