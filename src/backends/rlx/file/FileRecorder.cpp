#include "backends/rlx/file/FileRecorder.hpp"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <random>

#include "backends/rlx/file/finalise.hpp"
#include "backends/rlx/file/guarded.hpp"
#include "backends/rlx/records/crc32c.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::rlx {

namespace {

constexpr std::size_t kMaxPending = 64;
constexpr uint64_t kNanosecondsPerMillisecond = 1'000'000;
constexpr std::chrono::milliseconds kSyncPeriod{500};
constexpr std::size_t kFirstFramesDropped = 1;

uint64_t newRecordingId() {
    std::random_device source;
    return (uint64_t{source()} << 32) | source();
}

bool sizeCanBeCoded(const rlxrw::RlxRecordingHeader& facts) {
    const bool evenHeight = facts.height % 2 == 0 || isIntraOnly(facts.compression_mode);
    return facts.width > 0 && facts.height > 0 && facts.width <= kMaxImageSide && facts.height <= kMaxImageSide &&
           facts.width % 2 == 0 && evenHeight;
}

}  // namespace

int FileRecorder::create(const std::string& path, const rlxrw::RlxRecordingHeader& facts, Existing existing) {
    close();
    createdFile = false;
    const int result =
        guarded<int>("Creating the file", rlxrw::RLX_NOT_CREATABLE, [&] { return start(path, facts, existing); });
    if (result != rlxrw::RLX_CREATED) {
        discardFile();
    }
    return result;
}

int FileRecorder::start(const std::string& path, const rlxrw::RlxRecordingHeader& wanted, Existing existing) {
    rlxrw::RlxRecordingHeader facts = wanted;
    facts.fps = plausibleRate(facts.fps);
    encoder = sizeCanBeCoded(facts) ? makeEncoder(facts) : nullptr;
    if (encoder == nullptr) {
        ORU_LOG(Error, "{} No encoder for RLX compression mode {} at {}x{}", kTagKoru,
                static_cast<int>(facts.compression_mode), facts.width, facts.height);
        return rlxrw::RLX_NO_ENCODER;
    }
    fileHeader = {facts, newRecordingId(), encoder->codecPrivate(), true};
    if (headerRecordSize(fileHeader) > kMaxHeaderSize) {
        ORU_LOG(Warning, "{} The calibration of camera {} is too long ({} bytes) for {} and left out", kTagKoru,
                facts.serial_number, facts.calibration_text.size(), path);
        fileHeader.facts.calibration_text.clear();
    }
    pendingFrames.resize(kMaxPending);
    firstPending = 0;
    nextNumber = 0;
    indexEntries.clear();
    writeFailed = false;
    writtenFrames = 0;
    offeredFrames = 0;
    syncFailed = false;
    sink = [this](const CodedImage& image) { return append(image); };
    if (!openFile(path, existing)) {
        const int error = errno;
        ORU_LOG(Error, "{} Cannot create {}: {}", kTagKoru, path, std::strerror(error));
        return error == EEXIST ? rlxrw::RLX_EXISTS : rlxrw::RLX_NOT_CREATABLE;
    }
    {
        const MutexLock lock(syncMutex);
        stopRequested = false;
    }
    syncer = std::thread([this] {
        (void)::pthread_setname_np(::pthread_self(), "rlx-sync");
        guarded("Bringing the file to the disk", [this] { syncWhileOpen(); });
    });
    return rlxrw::RLX_CREATED;
}

bool FileRecorder::openFile(const std::string& path, Existing existing) {
    filePath = path;
    createdFile = file.createNew(path);
    if (!createdFile && (errno != EEXIST || existing == Existing::REFUSE || !file.openToOverwrite(path))) {
        return false;
    }
    if (!file.isRegular()) {
        errno = EINVAL;
        return false;
    }
    const Bytes head = buildHead(fileHeader, std::nullopt);
    if (!file.resize(0) || !file.writeAt(0, head)) {
        return false;
    }
    endOffset = head.size();
    syncDirectoryOf(path);
    return true;
}

/// Removes the file while its lock keeps other recorders from taking it over.
void FileRecorder::discardFile() {
    if (createdFile) {
        (void)::unlink(filePath.c_str());
    }
    createdFile = false;
    file.close();
}

FrameRecord& FileRecorder::pendingSlot() {
    return pendingFrames[nextNumber % kMaxPending];
}

int FileRecorder::writeFrame(const rlxrw::RlxFrame& frame) {
    return guarded<int>("Writing a frame", rlxrw::RLX_ENCODER_FAILED, [&] { return write(frame); });
}

int FileRecorder::write(const rlxrw::RlxFrame& frame) {
    const std::size_t expected = std::size_t{fileHeader.facts.width} * fileHeader.facts.height * 2;
    if (!isOpen() || writeFailed || syncFailed.load(std::memory_order_relaxed)) {
        return rlxrw::RLX_CANNOT_GROW;
    }
    if (frame.pixels == nullptr || frame.size != expected || nextNumber - firstPending >= kMaxPending) {
        return rlxrw::RLX_ENCODER_FAILED;
    }
    offeredFrames.fetch_add(1, std::memory_order_relaxed);
    FrameRecord& record = pendingSlot();
    record.recording_id = fileHeader.recording_id;
    record.number = nextNumber++;
    record.time_ns = frame.time;
    record.lost_before = frame.lost_before;
    record.metadata = frame.metadata;
    record.has_imu = frame.imu != nullptr;
    record.imu = frame.imu != nullptr ? *frame.imu : IMUPacket{};
    record.packets.assign(frame.packets, frame.packets + frame.packet_count);
    const bool coded = encoder->encode(frame.pixels, record.number, sink);
    if (writeFailed) {
        return rlxrw::RLX_CANNOT_GROW;
    }
    return coded ? rlxrw::RLX_WRITTEN : rlxrw::RLX_ENCODER_FAILED;
}

void FileRecorder::describeImage(const CodedImage& image, FrameRecord& frame) {
    if (indexEntries.empty()) {
        firstTimeNs = frame.time_ns;
    }
    const uint64_t lastMs = indexEntries.empty() ? 0 : indexEntries.back().time_ms;
    const uint64_t since = frame.time_ns > firstTimeNs ? frame.time_ns - firstTimeNs : 0;
    frame.time_ms = std::max(lastMs, (since + kNanosecondsPerMillisecond / 2) / kNanosecondsPerMillisecond);
    frame.key = image.key;
    frame.reference_delta = image.key ? 0 : frame.time_ms - lastMs;
    frame.image_size = static_cast<uint32_t>(image.bytes.size());
    frame.image_crc = crc32c(image.bytes.data(), image.bytes.size());
}

bool FileRecorder::append(const CodedImage& image) {
    if (image.number != firstPending || image.bytes.size() > maxStoredImage(fileHeader.facts)) {
        return false;
    }
    FrameRecord& frame = pendingFrames[firstPending++ % kMaxPending];
    describeImage(image, frame);
    recordBytes.clear();
    encodeFrame(frame, fileHeader.facts.version, recordBytes);
    prefix.clear();
    buildPrefix(frame, recordBytes.size(), prefix);
    suffix.clear();
    buildSuffixFraming(frame, recordBytes.size(), suffix);
    const std::size_t total = prefix.size() + image.bytes.size() + suffix.size() + recordBytes.size();
    const uint64_t end = endOffset.load(std::memory_order_relaxed);
    iovec parts[] = {{prefix.data(), prefix.size()},
                     {const_cast<uint8_t*>(image.bytes.data()), image.bytes.size()},
                     {suffix.data(), suffix.size()},
                     {recordBytes.data(), recordBytes.size()}};
    if (!file.writePartsAt(end, parts, 4)) {
        ORU_LOG(Error, "{} Cannot write to {}: {}", kTagKoru, filePath, std::strerror(errno));
        writeFailed = true;
        return false;
    }
    indexEntries.push_back({end, frame.time_ns, static_cast<uint32_t>(total), frame.key, frame.time_ms});
    endOffset.store(end + total, std::memory_order_relaxed);
    writtenFrames.fetch_add(1, std::memory_order_relaxed);
    return true;
}

void FileRecorder::close() {
    if (!isOpen()) {
        return;
    }
    guarded("Coding the last frames", [this] {
        if (!writeFailed && !encoder->finish(sink)) {
            ORU_LOG(Warning, "{} The last frames of {} could not be coded", kTagKoru, filePath);
        }
    });
    stopSyncing();
    guarded("Ending the file", [this] { finishOrDiscard(); });
    file.close();
    encoder.reset();
}

FrameCounters FileRecorder::counters() const {
    FrameCounters counters;
    counters.delivered = framesWritten();
    counters.queue_full = std::max(framesOffered(), counters.delivered) - counters.delivered;
    counters.produced = counters.delivered + counters.queue_full;
    return counters;
}

void FileRecorder::finishOrDiscard() {
    if (indexEntries.empty() && framesOffered() > 0) {
        discardFile();
    } else {
        finish();
    }
}

void FileRecorder::finish() {
    std::size_t dropped = 0;
    std::size_t drop = kFirstFramesDropped;
    while (!finaliseRecording(file, fileHeader, indexEntries, endOffset.load())) {
        const bool full = errno == ENOSPC || errno == EFBIG || errno == EDQUOT;
        if (!full || indexEntries.empty()) {
            ORU_LOG(Error, "{} Cannot complete {}: {}; it can be repaired", kTagKoru, filePath, std::strerror(errno));
            return;
        }
        // The index needs room as well: the last frames make it.
        for (std::size_t i = 0; i < drop && !indexEntries.empty(); ++i) {
            endOffset = indexEntries.back().offset;
            indexEntries.pop_back();
            ++dropped;
        }
        drop *= 2;
    }
    if (dropped > 0) {
        ORU_LOG(Warning, "{} The last {} frames of {} made room for its index", kTagKoru, dropped, filePath);
        writtenFrames.fetch_sub(dropped);
    }
}

void FileRecorder::syncWhileOpen() {
    uint64_t synced = 0;
    syncMutex.lock();
    while (!stopRequested) {
        (void)syncWake.wait_for(syncMutex, kSyncPeriod);
        const uint64_t end = endOffset.load(std::memory_order_relaxed);
        if (stopRequested || end == synced) {
            continue;
        }
        syncMutex.unlock();
        synced = end;
        if (!file.syncData()) {
            ORU_LOG(Error, "{} Cannot bring {} to the disk: {}", kTagKoru, filePath, std::strerror(errno));
            syncFailed.store(true, std::memory_order_relaxed);
        }
        syncMutex.lock();
    }
    syncMutex.unlock();
}

void FileRecorder::stopSyncing() {
    {
        const MutexLock lock(syncMutex);
        stopRequested = true;
    }
    syncWake.notify_all();
    if (syncer.joinable()) {
        syncer.join();
    }
}

}  // namespace oru::rlx
