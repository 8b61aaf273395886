#include "backends/rlx/file/FilePlayer.hpp"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::rlx {

namespace {

constexpr int kReadWaitMs = 200;
constexpr std::size_t kMaxPassedOver = 65'536;

}  // namespace

int FilePlayer::open(const std::string& path) {
    close();
    openedFile = openRecording(path, false);
    Condition condition = openedFile.condition;
    if (condition == Condition::INTACT) {
        condition = loadIndex(openedFile, indexEntries);
    }
    if (condition != Condition::INTACT) {
        ORU_LOG(Warning, "{} {} {}", kTagInit, path, describe(condition));
        openedFile = OpenedFile{};
        indexEntries.clear();
        return rlxrw::RLX_DAMAGED;
    }
    auto decoder = makeDecoder(openedFile.header.facts, openedFile.header.codec_private);
    if (decoder == nullptr) {
        ORU_LOG(Warning, "{} {} has compression mode {}, which cannot be decoded here", kTagInit, path,
                static_cast<int>(openedFile.header.facts.compression_mode));
        openedFile = OpenedFile{};
        indexEntries.clear();
        return rlxrw::RLX_NOT_DECODABLE;
    }
    frameDecoder = std::make_unique<FrameDecoder>(openedFile, indexEntries, std::move(decoder));
    deliveredFrames = lateFrames = damagedFrames = undecodedFrames = 0;
    {
        const MutexLock lock(mutex);
        stopping = false;
    }
    restartAt(0);
    worker = std::thread([this] { decodeAhead(); });
    return rlxrw::RLX_OPENED;
}

void FilePlayer::close() {
    {
        const MutexLock lock(mutex);
        stopping = true;
    }
    wake.notify_all();
    if (worker.joinable()) {
        worker.join();
    }
    frameDecoder.reset();
    openedFile = OpenedFile{};
    indexEntries.clear();
    for (DecodedFrame& slot : ring) {
        slot = DecodedFrame{};
    }
    restartAt(0);
}

Timestamp FilePlayer::frameTime(int index) const {
    return index >= 0 && index < frameCount() ? indexEntries[static_cast<std::size_t>(index)].time_ns : 0;
}

void FilePlayer::restartAt(int index) {
    const MutexLock lock(mutex);
    ++restarts;
    filledSlots = 0;
    nextToDecode = index;
    nextPosition = index;
    hasCurrentFrame = false;
    passedOver.clear();
    wake.notify_all();
}

void FilePlayer::setPosition(int index) {
    restartAt(std::clamp(index, 0, frameCount()));
}

void FilePlayer::decodeAhead() {
    mutex.lock();
    while (!stopping) {
        if (filledSlots == kAhead || nextToDecode >= static_cast<int>(indexEntries.size())) {
            wake.wait(mutex);
            continue;
        }
        const uint64_t generation = restarts;
        const int index = nextToDecode;
        DecodedFrame& slot = ring[(frontSlot + filledSlots) % kAhead];
        mutex.unlock();
        frameDecoder->decode(index, slot);
        mutex.lock();
        if (generation == restarts) {
            ++filledSlots;
            nextToDecode = index + 1;
            wake.notify_all();
        }
    }
    mutex.unlock();
}

DecodedFrame* FilePlayer::waitForFront(int waitMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(waitMs);
    while (filledSlots == 0) {
        if (wake.wait_until(mutex, deadline) == std::cv_status::timeout) {
            break;
        }
    }
    return filledSlots == 0 ? nullptr : &ring[frontSlot];
}

void FilePlayer::popFront() {
    frontSlot = (frontSlot + 1) % kAhead;
    --filledSlots;
    ++nextPosition;
    wake.notify_all();
}

void FilePlayer::joinPackets(DecodedFrame& frame) {
    if (frame.record_whole && passedOver.size() + frame.packets.size() <= kMaxPassedOver) {
        passedOver.insert(passedOver.end(), frame.packets.begin(), frame.packets.end());
    }
}

void FilePlayer::takeFacts(DecodedFrame& frame) {
    joinPackets(frame);
    currentFrame.index = frame.index;
    currentFrame.time = frame.time;
    currentFrame.metadata = frame.metadata;
    currentFrame.has_imu = frame.has_imu;
    currentFrame.imu = frame.imu;
    currentFrame.packets.swap(passedOver);
    passedOver.clear();
    hasCurrentFrame = true;
}

void FilePlayer::skipFrame() {
    const MutexLock lock(mutex);
    if (nextPosition >= static_cast<int>(indexEntries.size())) {
        return;
    }
    // Waits for the decoder, which has to go through the frame anyway where frames build on each other.
    DecodedFrame* frame = waitForFront(kReadWaitMs);
    if (frame == nullptr) {
        return;
    }
    if (frame->quality == FrameQuality::WHOLE) {
        ++lateFrames;
        joinPackets(*frame);
    } else {
        leaveOut(*frame);
    }
    popFront();
}

void FilePlayer::leaveOut(DecodedFrame& frame) {
    const bool damaged = frame.quality == FrameQuality::DAMAGED;
    if (damagedFrames + undecodedFrames == 0) {
        ORU_LOG(Warning, "{} Frames of the recording are damaged and left out, the first is frame {}", kTagKoru,
                frame.index);
    }
    ORU_LOG(Debug, "{} Frame {} of the recording is {}", kTagKoru, frame.index, damaged ? "damaged" : "not decodable");
    ++(damaged ? damagedFrames : undecodedFrames);
    joinPackets(frame);
}

FrameStatus FilePlayer::readFrame(unsigned char* pixels, std::size_t size, Timestamp& time) {
    if (!isOpen()) {
        return SOURCE_UNAVAILABLE;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kReadWaitMs);
    const MutexLock lock(mutex);
    while (nextPosition < static_cast<int>(indexEntries.size())) {
        DecodedFrame* frame = waitForFront(kReadWaitMs);
        if (frame == nullptr) {
            return NO_FRAME;
        }
        if (frame->quality == FrameQuality::WHOLE) {
            if (pixels == nullptr || frame->pixels.size() != size) {
                return SOURCE_ERROR;
            }
            std::memcpy(pixels, frame->pixels.data(), size);
            time = frame->time;
            takeFacts(*frame);
            ++deliveredFrames;
            popFront();
            return NEW_FRAME;
        }
        leaveOut(*frame);
        popFront();
        if (std::chrono::steady_clock::now() >= deadline) {
            return NO_FRAME;
        }
    }
    return INPUT_ENDED;
}

bool FilePlayer::metadata(rlxrw::rlxSampleMetadata& out) const {
    const MutexLock lock(mutex);
    if (hasCurrentFrame) {
        out = currentFrame.metadata;
    }
    return hasCurrentFrame;
}

bool FilePlayer::imuOfImage(IMUPacket& out) const {
    const MutexLock lock(mutex);
    const bool known = hasCurrentFrame && currentFrame.has_imu;
    if (known) {
        out = currentFrame.imu;
    }
    return known;
}

bool FilePlayer::newestImu(IMUPacket& out) const {
    {
        const MutexLock lock(mutex);
        if (hasCurrentFrame && !currentFrame.packets.empty()) {
            out = currentFrame.packets.back();
            return true;
        }
    }
    return imuOfImage(out);
}

std::vector<IMUPacket> FilePlayer::packets() const {
    const MutexLock lock(mutex);
    return hasCurrentFrame ? currentFrame.packets : std::vector<IMUPacket>{};
}

FrameCounters FilePlayer::counters() const {
    FrameCounters counters;
    counters.delivered = deliveredFrames.load();
    counters.late = lateFrames.load();
    counters.damaged = damagedFrames.load();
    counters.decode_failed = undecodedFrames.load();
    counters.produced = counters.delivered + counters.lost();
    return counters;
}

}  // namespace oru::rlx
