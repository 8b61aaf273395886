#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "backends/rlx/FrameDecoder.hpp"
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

    /// 0 opened, 1 damaged or unreadable (the log says what), 2 compression not decodable here.
    [[nodiscard]] int open(const std::string& path);
    void close();
    [[nodiscard]] bool isOpen() const { return worker_.joinable(); }
    [[nodiscard]] const HeaderRecord& header() const { return recording_.header; }

    [[nodiscard]] int frameCount() const { return static_cast<int>(entries_.size()); }
    [[nodiscard]] int position() const { return position_; }
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
    DecodedFrame* waitForFront(int wait_ms) ORU_REQUIRES(mutex_);
    void popFront() ORU_REQUIRES(mutex_);
    void takeFacts(DecodedFrame& frame) ORU_REQUIRES(mutex_);
    void leaveOut(DecodedFrame& frame) ORU_REQUIRES(mutex_);
    void joinPackets(DecodedFrame& frame) ORU_REQUIRES(mutex_);
    void restartAt(int index);

    OpenedFile recording_;
    std::vector<IndexEntry> entries_;
    std::unique_ptr<FrameDecoder> decoder_;  // the worker's while it runs

    std::atomic<int> position_{0};

    std::thread worker_;
    mutable Mutex mutex_;
    bool has_current_ ORU_GUARDED_BY(mutex_) = false;
    DecodedFrame current_ ORU_GUARDED_BY(mutex_);                // without its picture
    std::vector<IMUPacket> passed_over_ ORU_GUARDED_BY(mutex_);  // of skipped and damaged frames, for the next one
    std::condition_variable_any wake_;
    std::array<DecodedFrame, kAhead> ring_;
    std::size_t front_ ORU_GUARDED_BY(mutex_) = 0;
    std::size_t filled_ ORU_GUARDED_BY(mutex_) = 0;
    int next_to_decode_ ORU_GUARDED_BY(mutex_) = 0;
    uint64_t generation_ ORU_GUARDED_BY(mutex_) = 0;
    bool stop_ ORU_GUARDED_BY(mutex_) = false;

    std::atomic<uint64_t> delivered_{0};
    std::atomic<uint64_t> late_{0};
    std::atomic<uint64_t> damaged_{0};
    std::atomic<uint64_t> decode_failed_{0};
};

}  // namespace oru::rlx
