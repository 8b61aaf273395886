#include "backends/rlx/file/FilePlayer.hpp"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::rlx {

namespace {

constexpr std::chrono::milliseconds kReadWait{200};
constexpr std::size_t kMaxPassedOver = 65'536;

}  // namespace

int FilePlayer::open(const std::string& path, bool follow) {
    close();
    PlayableRecording recording = openToPlay(path);
    if (!recording.plays() && !(recording.whole && follow)) {
        ORU_REASON("{} {}", path, describe(recording.condition));
        ORU_LOG(Warning, "{} {} {}", kTagInit, path, describe(recording.condition));
        return rlxrw::RLX_DAMAGED;
    }
    const rlxrw::RlxRecordingHeader& facts = recording.opened.header.facts;
    auto decoder = makeDecoder(facts, recording.opened.header.codec_private);
    if (decoder == nullptr) {
        ORU_REASON("{} has compression mode {}, which cannot be decoded here", path,
                   static_cast<int>(facts.compression_mode));
        ORU_LOG(Warning, "{} {} has compression mode {}, which cannot be decoded here", kTagInit, path,
                static_cast<int>(facts.compression_mode));
        return rlxrw::RLX_NOT_DECODABLE;
    }
    if (recording.condition != Condition::INTACT) {
        ORU_LOG(Warning, "{} {} {}: its {} whole frames are played, and the file is left as it is", kTagInit, path,
                describe(recording.condition), recording.entries.size());
    }
    deliveredFrames = lateFrames = damagedFrames = undecodedFrames = 0;
    ahead = std::make_unique<DecodeAhead>(std::move(recording), follow, std::move(decoder));
    return rlxrw::RLX_OPENED;
}

void FilePlayer::close() {
    ahead.reset();
    restartAt(0);
}

Timestamp FilePlayer::frameTime(int index) const {
    return isOpen() ? ahead->frameTime(index) : 0;
}

void FilePlayer::restartAt(int index) {
    if (isOpen()) {
        ahead->restartAt(index);
    }
    nextPosition = index;
    const MutexLock lock(mutex);
    hasCurrentFrame = false;
    passedOver.clear();
}

void FilePlayer::setPosition(int index) {
    restartAt(std::clamp(index, 0, frameCount()));
}

void FilePlayer::popFront() {
    ahead->popFront();
    ++nextPosition;
}

void FilePlayer::joinPackets(DecodedFrame& frame) {
    if (frame.record_whole && passedOver.size() + frame.packets.size() <= kMaxPassedOver) {
        passedOver.insert(passedOver.end(), frame.packets.begin(), frame.packets.end());
    }
}

void FilePlayer::takeFacts(DecodedFrame& frame) {
    const MutexLock lock(mutex);
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
    if (nextPosition >= frameCount()) {
        return;
    }
    // Waits for the decoder, which has to go through the frame anyway where frames build on each other.
    DecodedFrame* frame = ahead->waitForFront(kReadWait);
    if (frame == nullptr) {
        return;
    }
    if (frame->quality == FrameQuality::WHOLE) {
        ++lateFrames;
        const MutexLock lock(mutex);
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
    const MutexLock lock(mutex);
    joinPackets(frame);
}

FrameStatus FilePlayer::readFrame(unsigned char* pixels, std::size_t size, Timestamp& time) {
    if (!isOpen()) {
        return SOURCE_UNAVAILABLE;
    }
    const auto deadline = std::chrono::steady_clock::now() + kReadWait;
    while (!hasEnded()) {
        DecodedFrame* frame = ahead->waitForFront(kReadWait);
        if (frame == nullptr) {
            return hasEnded() ? INPUT_ENDED : NO_FRAME;
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
