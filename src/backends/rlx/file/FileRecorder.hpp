#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "backends/rlx/container/container.hpp"
#include "backends/rlx/file/File.hpp"
#include "backends/rlx/file/codec.hpp"
#include "utils/Mutex.hpp"

namespace oru::rlx {

/// Writes one recording. Each frame is in the kernel's hands when writeFrame returns (unless the encoder holds it
/// back), and on the disk half a second later: a thread of its own calls fdatasync. The file is locked until close().
/// Threads: create, writeFrame and close one at a time; the counts from any.
class FileRecorder final : public rlxrw::RecordingFile {
public:
    FileRecorder() = default;
    ~FileRecorder() override { close(); }
    FileRecorder(const FileRecorder&) = delete;
    FileRecorder& operator=(const FileRecorder&) = delete;

    enum class Existing { REPLACE, REFUSE };
    /// rlxrw::RLX_CREATE_RESULT. After a failure no new file is left. A calibration text too long for the header record
    /// is left out, which the log says; a rate that no camera has is written as 0.
    [[nodiscard]] int create(const std::string& path, const rlxrw::RlxRecordingHeader& facts, Existing existing);
    int writeFrame(const rlxrw::RlxFrame& frame) override;
    /// Ends the file: playable and complete, if need be without its last frames when the disk is full. A new file that
    /// no frame could be written to is removed.
    void close() override;

    [[nodiscard]] bool isOpen() const { return file.isOpen(); }
    [[nodiscard]] const HeaderRecord& header() const { return fileHeader; }
    [[nodiscard]] uint64_t framesWritten() const { return writtenFrames.load(std::memory_order_relaxed); }
    [[nodiscard]] uint64_t framesOffered() const { return offeredFrames.load(std::memory_order_relaxed); }
    [[nodiscard]] uint64_t bytesWritten() const override { return endOffset.load(std::memory_order_relaxed); }
    [[nodiscard]] FrameCounters counters() const override;

private:
    int start(const std::string& path, const rlxrw::RlxRecordingHeader& facts, Existing existing);
    bool openFile(const std::string& path, Existing existing);
    void discardFile();
    void finishOrDiscard();
    int write(const rlxrw::RlxFrame& frame);
    bool append(const CodedImage& image);
    void describeImage(const CodedImage& image, FrameRecord& frame);
    FrameRecord& pendingSlot();
    void finish();
    void syncWhileOpen();
    void stopSyncing();

    std::string filePath;
    File file;
    HeaderRecord fileHeader;
    std::unique_ptr<ImageEncoder> encoder;
    CodedSink sink;
    std::vector<FrameRecord> pendingFrames;  // a ring of frames that the encoder still holds
    uint64_t firstPending = 0;
    uint64_t nextNumber = 0;
    uint64_t firstTimeNs = 0;
    std::vector<IndexEntry> indexEntries;
    Bytes recordBytes;
    Bytes prefix;
    Bytes suffix;
    bool writeFailed = false;
    bool createdFile = false;  // it did not exist before
    std::atomic<uint64_t> writtenFrames{0};
    std::atomic<uint64_t> offeredFrames{0};
    std::atomic<uint64_t> endOffset{0};

    std::thread syncer;
    Mutex syncMutex;
    std::condition_variable_any syncWake;
    bool stopRequested ORU_GUARDED_BY(syncMutex) = false;
    std::atomic<bool> syncFailed{false};
};

}  // namespace oru::rlx
