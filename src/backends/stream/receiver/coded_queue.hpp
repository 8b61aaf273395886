#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "backends/stream/wire/records.hpp"
#include "utils/Mutex.hpp"

namespace oru::stream {

/// One coded image with its record.
struct CodedImage {
    std::vector<uint8_t> bytes;  ///< the coded image is its last record.image_bytes, before `padding`
    std::size_t padding = 0;
    VideoCodec codec = VideoCodec::NONE;
    FrameRecord record;
};

/// Coded images between the receiving and the decoding thread, in order. Buffers are swapped, never copied.
/// Threads: one writer, one reader; size and isDrained from any.
class CodedQueue {
public:
    static constexpr std::size_t kCapacity = 32;

    /// False: full, `image` is untouched.
    [[nodiscard]] bool push(CodedImage& image);
    /// Waits for an image. False: there is none after this time.
    [[nodiscard]] bool pop(CodedImage& image, int milliseconds);
    [[nodiscard]] std::size_t size() const;
    /// None waits, and the reader is done with the one that it took last: it has asked for another since.
    [[nodiscard]] bool isDrained() const;

private:
    mutable Mutex mutex;
    std::condition_variable_any pushed;
    std::array<CodedImage, kCapacity> images ORU_GUARDED_BY(mutex);
    std::size_t first ORU_GUARDED_BY(mutex) = 0;
    std::size_t count ORU_GUARDED_BY(mutex) = 0;
    bool inUse ORU_GUARDED_BY(mutex) = false;  ///< the image that was taken last
};

}  // namespace oru::stream
