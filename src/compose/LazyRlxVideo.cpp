#include "compose/LazyRlxVideo.hpp"

#include "compose/modules/modules.hpp"

namespace oru {

using rlxrw::RLXVideo;

RLXVideo* LazyRlxVideo::needed() {
    if (video == nullptr) {
        if (const RecordingModule* module = recordingModule(); module != nullptr) {
            video = module->makeVideo(calibrationSource);
            video->follow(follows);
            published.store(video.get(), std::memory_order_release);
        }
    }
    return video.get();
}

int LazyRlxVideo::open(const char* path) {
    RLXVideo* real = needed();
    return real != nullptr ? real->open(path) : rlxrw::kRlxModuleMissing;
}

int LazyRlxVideo::repairFile(const char* in, const char* out, bool reopen, bool allImages) {
    RLXVideo* real = needed();
    return real != nullptr ? real->repairFile(in, out, reopen, allImages) : rlxrw::kRlxModuleMissing;
}

int LazyRlxVideo::create(const char* path, const rlxrw::RlxRecordingHeader& header) {
    RLXVideo* real = needed();
    return real != nullptr ? real->create(path, header) : rlxrw::kRlxModuleMissing;
}

int LazyRlxVideo::createNew(const char* path, const rlxrw::RlxRecordingHeader& header) {
    RLXVideo* real = needed();
    return real != nullptr ? real->createNew(path, header) : rlxrw::kRlxModuleMissing;
}

void LazyRlxVideo::close() {
    if (RLXVideo* real = made(); real != nullptr) {
        real->close();
    }
}

void LazyRlxVideo::setPosition(int frame) {
    if (RLXVideo* real = made(); real != nullptr) {
        real->setPosition(frame);
    }
}

int LazyRlxVideo::getRLXVersion() {
    RLXVideo* real = made();
    return real != nullptr ? real->getRLXVersion() : 0;
}

rlxrw::IRLXWriter* LazyRlxVideo::v1() {
    RLXVideo* real = made();
    return real != nullptr ? real->v1() : nullptr;
}

const rlxrw::RlxHeaderV2* LazyRlxVideo::v2() {
    RLXVideo* real = made();
    return real != nullptr ? real->v2() : nullptr;
}

MODEL LazyRlxVideo::getCameraModel() {
    RLXVideo* real = made();
    return real != nullptr ? real->getCameraModel() : MODEL_UNKNOWN;
}

int LazyRlxVideo::getCameraFwVersion() {
    RLXVideo* real = made();
    return real != nullptr ? real->getCameraFwVersion() : 0;
}

int LazyRlxVideo::getIMUDataVersion() {
    RLXVideo* real = made();
    return real != nullptr ? real->getIMUDataVersion() : 0;
}

bool LazyRlxVideo::hasIMUData() {
    RLXVideo* real = made();
    return real != nullptr && real->hasIMUData();
}

int LazyRlxVideo::getSharpenIntVal() {
    RLXVideo* real = made();
    return real != nullptr ? real->getSharpenIntVal() : 0;
}

ImuCalibration LazyRlxVideo::getImuCalib() {
    RLXVideo* real = made();
    return real != nullptr ? real->getImuCalib() : ImuCalibration{};
}

RLX_COMPRESSION_MODE LazyRlxVideo::getCompressionMode() {
    RLXVideo* real = made();
    return real != nullptr ? real->getCompressionMode() : RLX_H264;
}

bool LazyRlxVideo::getDecompressionPlatform() {
    RLXVideo* real = made();
    return real != nullptr && real->getDecompressionPlatform();
}

bool LazyRlxVideo::getCurrentIMU(IMUPacket& packet) {
    RLXVideo* real = made();
    return real != nullptr && real->getCurrentIMU(packet);
}

bool LazyRlxVideo::getCurrentMetadata(rlxrw::rlxSampleMetadata& metadata) {
    RLXVideo* real = made();
    return real != nullptr && real->getCurrentMetadata(metadata);
}

const Matrix4f* LazyRlxVideo::getIMUCamTransform() {
    RLXVideo* real = made();
    return real != nullptr ? real->getIMUCamTransform() : nullptr;
}

std::vector<IMUPacket> LazyRlxVideo::getFrameIMUPackets() {
    RLXVideo* real = made();
    return real != nullptr ? real->getFrameIMUPackets() : std::vector<IMUPacket>{};
}

bool LazyRlxVideo::getFrameIMU(IMUPacket& packet) {
    RLXVideo* real = made();
    return real != nullptr && real->getFrameIMU(packet);
}

// What is written before create() would be forgotten there.
void LazyRlxVideo::writeCurrentIMU(IMUPacket packet) {
    if (RLXVideo* real = made(); real != nullptr) {
        real->writeCurrentIMU(packet);
    }
}

FrameStatus LazyRlxVideo::readFrame(unsigned char* pixels, std::size_t size, Timestamp& time) {
    RLXVideo* real = made();
    return real != nullptr ? real->readFrame(pixels, size, time) : SOURCE_UNAVAILABLE;
}

void LazyRlxVideo::follow(bool wanted) {
    follows = wanted;
    if (RLXVideo* real = made(); real != nullptr) {
        real->follow(wanted);
    }
}

bool LazyRlxVideo::mayGrow() {
    RLXVideo* real = made();
    return real != nullptr && real->mayGrow();
}

int LazyRlxVideo::frameCount() {
    RLXVideo* real = made();
    return real != nullptr ? real->frameCount() : 0;
}

int LazyRlxVideo::position() {
    RLXVideo* real = made();
    return real != nullptr ? real->position() : 0;
}

Timestamp LazyRlxVideo::frameTime(int frame) {
    RLXVideo* real = made();
    return real != nullptr ? real->frameTime(frame) : 0;
}

void LazyRlxVideo::skipFrame() {
    if (RLXVideo* real = made(); real != nullptr) {
        real->skipFrame();
    }
}

int LazyRlxVideo::writeFrame(const rlxrw::RlxFrame& frame) {
    RLXVideo* real = made();
    return real != nullptr ? real->writeFrame(frame) : rlxrw::kRlxModuleMissing;
}

std::shared_ptr<rlxrw::RecordingFile> LazyRlxVideo::recordingFile() {
    RLXVideo* real = made();
    return real != nullptr ? real->recordingFile() : nullptr;
}

void LazyRlxVideo::takeWrittenPackets(std::vector<IMUPacket>& packets) {
    if (RLXVideo* real = made(); real != nullptr) {
        real->takeWrittenPackets(packets);
    }
}

uint64_t LazyRlxVideo::bytesWritten() {
    RLXVideo* real = made();
    return real != nullptr ? real->bytesWritten() : 0;
}

FrameCounters LazyRlxVideo::counters() const {
    const RLXVideo* real = made();
    return real != nullptr ? real->counters() : FrameCounters{};
}

}  // namespace oru
