#pragma once

#include <chrono>
#include <cstdint>

#include "backends/rlx/file/open_recording.hpp"

namespace oru::rlx {

/// Finds the frames that come to a recording while it is read. Threads: one at a time.
class FileFollower {
public:
    /// The last frame known ends at `end`. `recording` outlives the follower.
    FileFollower(const OpenedFile& recording, uint64_t end);

    /// The next frame, once every byte of it is there.
    [[nodiscard]] bool next(IndexEntry& entry);
    /// False once the recording was finished behind the last frame, or nothing has come for five seconds.
    [[nodiscard]] bool mayGrow() const;

private:
    using Time = std::chrono::steady_clock::time_point;

    void passVoid(uint64_t fileSize);
    [[nodiscard]] bool isFinished() const;

    const OpenedFile& openedFile;
    uint64_t endOffset;
    uint64_t lastSize = 0;
    Time grownAt;
    StoredFrame stored;
};

}  // namespace oru::rlx
