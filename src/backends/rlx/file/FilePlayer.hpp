#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "backends/rlx/file/DecodeAhead.hpp"
#include "oru_input/grabber/frame_status.hpp"
#include "utils/Mutex.hpp"

namespace oru::rlx {

/// Plays one recording frame by frame; a thread of its own reads and decodes a few frames ahead (DecodeAhead).
/// Threads: one caller at a time; position, the facts of the last frame and counters from any.
class FilePlayer {
public:
    FilePlayer() = default;
    ~FilePlayer() { close(); }
    FilePlayer(const FilePlayer&) = delete;
    FilePlayer& operator=(const FilePlayer&) = delete;

    /// rlxrw::RLX_OPEN_RESULT; the log says what is damaged or missing. With `follow` what only lacks its end goes on
    /// while it grows, and need not have a frame yet.
    [[nodiscard]] int open(const std::string& path, bool follow);
    void close();
    [[nodiscard]] bool isOpen() const { return ahead != nullptr; }
    /// Only while open.
    [[nodiscard]] const HeaderRecord& header() const { return ahead->header(); }

    [[nodiscard]] int frameCount() const { return isOpen() ? ahead->frameCount() : 0; }
    [[nodiscard]] bool mayGrow() const { return isOpen() && ahead->mayGrow(); }
    [[nodiscard]] int position() const { return nextPosition; }
    [[nodiscard]] Timestamp frameTime(int index) const;
    void setPosition(int index);
    void skipFrame();
    /// Copies the next whole frame to `pixels`. NO_FRAME when decoding takes longer than a fifth of a second.
    [[nodiscard]] FrameStatus readFrame(unsigned char* pixels, std::size_t size, Timestamp& time);

    // Of the frame read last; false or empty before the first one and after a new position. Any thread.
    [[nodiscard]] bool metadata(rlxrw::rlxSampleMetadata& out) const;
    [[nodiscard]] bool imuOfImage(IMUPacket& out) const;
    [[nodiscard]] bool newestImu(IMUPacket& out) const;
    [[nodiscard]] std::vector<IMUPacket> packets() const;
    [[nodiscard]] FrameCounters counters() const;

private:
    [[nodiscard]] bool hasEnded() const { return nextPosition >= frameCount() && !mayGrow(); }
    void popFront();
    void takeFacts(DecodedFrame& frame);
    void leaveOut(DecodedFrame& frame);
    void joinPackets(DecodedFrame& frame) ORU_REQUIRES(mutex);
    void restartAt(int index);

    std::unique_ptr<DecodeAhead> ahead;  // while open
    std::atomic<int> nextPosition{0};

    mutable Mutex mutex;
    bool hasCurrentFrame ORU_GUARDED_BY(mutex) = false;
    DecodedFrame currentFrame ORU_GUARDED_BY(mutex);          // without its image
    std::vector<IMUPacket> passedOver ORU_GUARDED_BY(mutex);  // of skipped and damaged frames, for the next one

    std::atomic<uint64_t> deliveredFrames{0};
    std::atomic<uint64_t> lateFrames{0};
    std::atomic<uint64_t> damagedFrames{0};
    std::atomic<uint64_t> undecodedFrames{0};
};

}  // namespace oru::rlx
