#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "backends/rlx/file/FrameDecoder.hpp"
#include "oru_input/grabber/frame_status.hpp"
#include "utils/Mutex.hpp"

namespace oru::rlx {

/// Plays one recording frame by frame; a thread of its own reads and decodes a few frames ahead.
/// Threads: one caller at a time; position, the facts of the last frame and counters from any.
class FilePlayer {
public:
    FilePlayer() = default;
    ~FilePlayer() { close(); }
    FilePlayer(const FilePlayer&) = delete;
    FilePlayer& operator=(const FilePlayer&) = delete;

    /// rlxrw::RLX_OPEN_RESULT; the log says what is damaged.
    [[nodiscard]] int open(const std::string& path);
    void close();
    [[nodiscard]] bool isOpen() const { return worker.joinable(); }
    [[nodiscard]] const HeaderRecord& header() const { return openedFile.header; }

    [[nodiscard]] int frameCount() const { return static_cast<int>(indexEntries.size()); }
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
    static constexpr std::size_t kAhead = 4;

    void decodeAhead();
    DecodedFrame* waitForFront(int waitMs) ORU_REQUIRES(mutex);
    void popFront() ORU_REQUIRES(mutex);
    void takeFacts(DecodedFrame& frame) ORU_REQUIRES(mutex);
    void leaveOut(DecodedFrame& frame) ORU_REQUIRES(mutex);
    void joinPackets(DecodedFrame& frame) ORU_REQUIRES(mutex);
    void restartAt(int index);

    OpenedFile openedFile;
    std::vector<IndexEntry> indexEntries;
    std::unique_ptr<FrameDecoder> frameDecoder;  // the worker's while it runs

    std::atomic<int> nextPosition{0};

    std::thread worker;
    mutable Mutex mutex;
    bool hasCurrentFrame ORU_GUARDED_BY(mutex) = false;
    DecodedFrame currentFrame ORU_GUARDED_BY(mutex);          // without its image
    std::vector<IMUPacket> passedOver ORU_GUARDED_BY(mutex);  // of skipped and damaged frames, for the next one
    std::condition_variable_any wake;
    std::array<DecodedFrame, kAhead> ring;
    std::size_t frontSlot ORU_GUARDED_BY(mutex) = 0;
    std::size_t filledSlots ORU_GUARDED_BY(mutex) = 0;
    int nextToDecode ORU_GUARDED_BY(mutex) = 0;
    uint64_t restarts ORU_GUARDED_BY(mutex) = 0;
    bool stopping ORU_GUARDED_BY(mutex) = false;

    std::atomic<uint64_t> deliveredFrames{0};
    std::atomic<uint64_t> lateFrames{0};
    std::atomic<uint64_t> damagedFrames{0};
    std::atomic<uint64_t> undecodedFrames{0};
};

}  // namespace oru::rlx
