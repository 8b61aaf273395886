#pragma once

#include <algorithm>
#include <cstdint>
#include <thread>

namespace oru::coding {

/// H.264 and H.265 code 4:2:0, the lossless ones (FFVHUFF, FFV1) 4:2:2 and every image by itself.
enum class VideoCodec : uint8_t { NONE, H264, H265, FFVHUFF, FFV1 };

/// What coded images are for.
enum class CodecUse : uint8_t {
    RECORDING,  ///< parameter sets apart from the images, several threads, damage is an error
    STREAMING,  ///< lowest delay, parameter sets with every key frame so that a receiver can join at any of them
};

/// Threads that code one image of a recording.
[[nodiscard]] inline int recordingThreads() {
    constexpr unsigned kMaxThreads = 4;
    return static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1U, kMaxThreads));
}

}  // namespace oru::coding
