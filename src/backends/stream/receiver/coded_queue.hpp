#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "backends/stream/wire/records.hpp"
#include "utils/Mutex.hpp"

namespace oru::stream {

/// One coded picture with its record.
struct CodedPicture {
    std::vector<uint8_t> bytes;  ///< the coded picture is its last record.picture_bytes, before `padding`
    std::size_t padding = 0;
    VideoCodec codec = VideoCodec::NONE;
    FrameRecord record;
};

/// Coded pictures between the receiving and the decoding thread, in order. Buffers are swapped, never copied.
/// Threads: one writer, one reader.
class CodedQueue {
public:
    static constexpr std::size_t kCapacity = 32;

    /// False: full, `picture` is untouched.
    [[nodiscard]] bool push(CodedPicture& picture);
    /// Waits for a picture. False: there is none after this time.
    [[nodiscard]] bool pop(CodedPicture& picture, int milliseconds);
    [[nodiscard]] std::size_t size() const;

private:
    mutable Mutex mutex;
    std::condition_variable_any pushed;
    std::array<CodedPicture, kCapacity> pictures ORU_GUARDED_BY(mutex);
    std::size_t first ORU_GUARDED_BY(mutex) = 0;
    std::size_t count ORU_GUARDED_BY(mutex) = 0;
};

}  // namespace oru::stream
