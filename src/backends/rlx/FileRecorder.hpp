#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "backends/rlx/File.hpp"
#include "backends/rlx/codec.hpp"
#include "backends/rlx/container.hpp"
#include "utils/Mutex.hpp"

namespace oru::rlx {

/// Writes one recording. Each frame is in the kernel's hands when writeFrame returns (unless the encoder holds it
/// back), and on the disk half a second later: a thread of its own calls fdatasync. The file is locked until close().
/// Threads: create, writeFrame and close one at a time; the counts from any.
class FileRecorder {
public:
    FileRecorder() = default;
    ~FileRecorder() { close(); }
    FileRecorder(const FileRecorder&) = delete;
    FileRecorder& operator=(const FileRecorder&) = delete;

    /// 0 ok, 1 not creatable, 2 no encoder for the mode. An existing file is emptied.
    [[nodiscard]] int create(const std::string& path, const rlxrw::RlxRecordingHeader& facts);
    /// 0 written, 1 the file cannot grow, 2 the encoder failed. After a failure only close() makes sense.
    [[nodiscard]] int writeFrame(const rlxrw::RlxFrame& frame);
    /// Ends the file: playable and complete, if need be without its last frames when the disk is full.
    void close();

    [[nodiscard]] bool isOpen() const { return file_.isOpen(); }
    [[nodiscard]] const HeaderRecord& header() const { return header_; }
    [[nodiscard]] uint64_t framesWritten() const { return written_.load(std::memory_order_relaxed); }
    [[nodiscard]] uint64_t framesOffered() const { return offered_.load(std::memory_order_relaxed); }
    [[nodiscard]] uint64_t bytesWritten() const { return end_.load(std::memory_order_relaxed); }

private:
    bool openFile(const std::string& path);
    bool append(const CodedPicture& picture);
    void describePicture(const CodedPicture& picture, FrameRecord& frame);
    FrameRecord& pendingSlot();
    void finish();
    void syncWhileOpen();
    void stopSyncing();

    std::string path_;
    File file_;
    HeaderRecord header_;
    std::unique_ptr<PictureEncoder> encoder_;
    CodedSink sink_;
    std::vector<FrameRecord> pending_;  // a ring of frames that the encoder still holds
    uint64_t first_pending_ = 0;
    uint64_t next_number_ = 0;
    uint64_t first_time_ns_ = 0;
    std::vector<IndexEntry> entries_;
    Bytes record_;
    Bytes prefix_;
    Bytes suffix_;
    bool write_failed_ = false;
    std::atomic<uint64_t> written_{0};
    std::atomic<uint64_t> offered_{0};
    std::atomic<uint64_t> end_{0};

    std::thread syncer_;
    Mutex sync_mutex_;
    std::condition_variable_any sync_wake_;
    bool stop_syncing_ ORU_GUARDED_BY(sync_mutex_) = false;
    std::atomic<bool> sync_failed_{false};
};

}  // namespace oru::rlx
