#pragma once

#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "backends/rlx/file/FrameDecoder.hpp"
#include "backends/rlx/file/playable.hpp"

namespace oru::rlx {

/// Reads and decodes a recording a few frames ahead of its reader, on a thread of its own. The thread shares the
/// ownership of all that it touches: when its storage hangs for longer than stop() waits, it is left behind with the
/// file and ends when the storage answers. It also looks for the frames that come to a recording which is followed.
/// Threads: one caller; the facts from any.
class DecodeAhead {
public:
    static constexpr std::chrono::seconds kLongestStop{10};

    /// Begins with frame 0. With `follow` what only lacks its end goes on while it grows.
    DecodeAhead(PlayableRecording recording, bool follow, std::unique_ptr<ImageDecoder> decoder);
    ~DecodeAhead() { stop(kLongestStop); }
    DecodeAhead(const DecodeAhead&) = delete;
    DecodeAhead& operator=(const DecodeAhead&) = delete;

    [[nodiscard]] const HeaderRecord& header() const;
    /// Frames found so far.
    [[nodiscard]] int frameCount() const;
    /// 0 when there is no such frame.
    [[nodiscard]] Timestamp frameTime(int index) const;
    /// More may come; false for good once the recording ended or has not grown for five seconds.
    [[nodiscard]] bool mayGrow() const;

    /// Goes on with frame `index`; what was decoded is forgotten.
    void restartAt(int index);
    /// The next frame, valid until popFront() or restartAt(); null when it is not there in time.
    [[nodiscard]] DecodedFrame* waitForFront(std::chrono::milliseconds wait);
    void popFront();
    /// Ends the thread, or leaves it behind and says so at Warning; then the only calls left are those to the facts.
    void stop(std::chrono::milliseconds limit);

private:
    struct Shared;

    std::shared_ptr<Shared> shared;
    std::thread worker;
};

}  // namespace oru::rlx
