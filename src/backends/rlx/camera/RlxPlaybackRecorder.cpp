#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "backends/rlx/camera/PlaybackPacer.hpp"
#include "backends/rlx/camera/RecordingSession.hpp"
#include "backends/rlx/file/guarded.hpp"
#include "backends/rlx/rlx_factory.hpp"
#include "calibration/readers.hpp"
#include "collaborators/frame_metadata.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru {

namespace {

using rlx::guarded;
using rlx::RecordingSession;
using rlxrw::RlxRecordingHeader;
using rlxrw::rlxSampleMetadata;

constexpr std::size_t kMaxCalibrationBytes = std::size_t{256} << 10;

bool playsAFile(const CameraFrameContext& camera) {
    return camera.initParameters.input.kind() == KIND_RLX_FILE && camera.reader.getRLXVersion() != 0;
}

unsigned char* pixelsOf(const CameraFrameContext& camera) {
    return camera.image.getPtr<unsigned char>(CPU);
}

std::size_t bytesOf(const CameraFrameContext& camera) {
    return camera.image.getStepBytes(CPU) * camera.image.getHeight();
}

std::string readText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    return text.size() <= kMaxCalibrationBytes ? text : std::string{};
}

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// Picks frames evenly, by their times, out of a faster source.
class RateFilter {
public:
    void start(uint32_t targetFps, float sourceFps) {
        const bool slower = targetFps > 0 && static_cast<float>(targetFps) < sourceFps;
        periodNs = slower ? 1'000'000'000U / targetFps : 0;
        toleranceNs = slower ? static_cast<uint64_t>(5e8F / sourceFps) : 0;
        next = 0;
    }
    bool takes(Timestamp time) {
        if (periodNs == 0) {
            return true;
        }
        const bool offSchedule = time + 2 * periodNs < next || time > next + periodNs;
        if (next == 0 || offSchedule) {
            next = time + periodNs;
            return true;
        }
        if (time + toleranceNs < next) {
            return false;
        }
        next += periodNs;
        return true;
    }

private:
    uint64_t periodNs = 0;
    uint64_t toleranceNs = 0;
    Timestamp next = 0;
};

class RlxPlaybackRecorder final : public PlaybackRecorder {
public:
    RlxPlaybackRecorder(Clock& clock, CalibrationSource& calibration)
        : systemClock(clock), calibrationSource(calibration), pacer(clock) {}

    FrameStatus nextImageOfRLX(CameraFrameContext camera, bool /*flag*/) override {
        return guarded("Taking a frame", SOURCE_ERROR, [&] { return takeImage(camera); });
    }
    void handleRLXFrameRecording(CameraFrameContext camera) override {
        guarded("Handing on a frame", [&] { handOn(camera); });
    }
    void disableRecording(CameraFrameContext camera) override;
    ERROR_CODE enableRecording(CameraFrameContext camera, const RecordingParameters& parameters,
                               const RlxRecordingHeader& source) override {
        return guarded("The start", FAILURE, [&] { return startSession(camera, parameters, source); });
    }
    void pauseRecording(CameraFrameContext camera, bool paused) override;
    RecordingStatus getRecordingStatus(CameraFrameContext camera) override;
    ERROR_CODE setRLXPosition(CameraFrameContext camera, int frame) override;
    ERROR_CODE setRLXPositionAt(CameraFrameContext camera, Timestamp time) override;
    int getRLXPosition(CameraFrameContext camera) override { return camera.reader.position(); }
    int getRLXNumberOfFrames(CameraFrameContext camera) override { return camera.reader.frameCount(); }

private:
    FrameStatus takeImage(const CameraFrameContext& camera);
    void handOn(const CameraFrameContext& camera);
    ERROR_CODE startSession(const CameraFrameContext& camera, const RecordingParameters& parameters,
                            const RlxRecordingHeader& source);
    RlxRecordingHeader headerFor(const CameraFrameContext& camera, const RecordingParameters& parameters,
                                 const RlxRecordingHeader& source) const;
    std::string calibrationText(const CameraFrameContext& camera, int serialNumber) const;
    void recordFrame(const CameraFrameContext& camera);
    RecordingSession::Facts factsOfFrame(const CameraFrameContext& camera) const;
    rlxSampleMetadata metadataOfFrame(const CameraFrameContext& camera, const IMUPacket& imu) const;
    void sendFrame(const CameraFrameContext& camera) const;
    void takeImu(const CameraFrameContext& camera) const;
    void endSession(const CameraFrameContext& camera);

    Clock& systemClock;
    CalibrationSource& calibrationSource;
    rlx::PlaybackPacer pacer;
    RateFilter rate;
    bool bufferIsFilled = false;
    std::vector<IMUPacket> discarded;
    std::unique_ptr<RecordingSession> session;
    std::string failureReason;  // of the session that ended last
};

FrameStatus RlxPlaybackRecorder::takeImage(const CameraFrameContext& camera) {
    if (camera.reader.getRLXVersion() == 0) {
        return SOURCE_UNAVAILABLE;
    }
    const bool allTaken = camera.reader.position() >= camera.reader.frameCount();
    if (allTaken && !camera.reader.mayGrow()) {
        return INPUT_ENDED;
    }
    if (allTaken) {
        pacer.restart();
    }
    if (camera.streamingEnabled.load(std::memory_order_acquire) && camera.streamOutput != nullptr) {
        camera.streamOutput->waitingestYUVFrameProcessing();
    }
    if (camera.initParameters.rlx_real_time && !allTaken && !pacer.waitForNext(camera.reader)) {
        return NO_FRAME;
    }
    Timestamp time = 0;
    const FrameStatus status = camera.reader.readFrame(pixelsOf(camera), bytesOf(camera), time);
    if (status != NEW_FRAME) {
        pacer.notePosition(camera.reader.position());
        return status;
    }
    pacer.noteTaken(camera.reader.position(), time);
    camera.image.timestamp = time;
    std::atomic_ref<Timestamp>(camera.currentTimestamp).store(time, std::memory_order_relaxed);
    takeImu(camera);
    if (camera.recordingEnabled.load(std::memory_order_acquire) && camera.recordingFrameBuffer != nullptr) {
        std::memcpy(camera.recordingFrameBuffer, pixelsOf(camera), bytesOf(camera));
    }
    return NEW_FRAME;
}

void RlxPlaybackRecorder::takeImu(const CameraFrameContext& camera) const {
    if (!camera.reader.hasIMUData()) {
        return;
    }
    IMUPacket imu;
    rlxSampleMetadata metadata{};
    const bool exact = camera.reader.getFrameIMU(imu);
    const bool fromMetadata = !exact && camera.reader.getCurrentMetadata(metadata);
    const MutexLock lock(camera.imuMutex);
    if (exact) {
        camera.currentImu = imu;
    } else if (fromMetadata) {
        rlxrw::convertMetadataToMCUData(metadata, camera.currentImu);
    }
}

void RlxPlaybackRecorder::handOn(const CameraFrameContext& camera) {
    if (session != nullptr) {
        recordFrame(camera);
    }
    if (playsAFile(camera)) {
        sendFrame(camera);
    }
}

void RlxPlaybackRecorder::sendFrame(const CameraFrameContext& camera) const {
    UDPOutput* sender = camera.streamOutput;
    if (sender == nullptr || !camera.streamingEnabled.load(std::memory_order_acquire)) {
        return;
    }
    if (sender->isBusy()) {
        sender->noteSkippedFrame();
        return;
    }
    rlxSampleMetadata metadata{};
    (void)camera.reader.getCurrentMetadata(metadata);
    sender->asyncingestYUVFrame(pixelsOf(camera), camera.currentTimestamp, metadata, static_cast<int>(bytesOf(camera)));
}

void RlxPlaybackRecorder::recordFrame(const CameraFrameContext& camera) {
    if (!camera.recordingEnabled.load(std::memory_order_acquire) || session->hasFailed()) {
        endSession(camera);
        return;
    }
    if (camera.recordingStateFlag.load(std::memory_order_acquire)) {
        discarded.clear();
        camera.recorder.takeWrittenPackets(discarded);
        return;
    }
    if (!rate.takes(camera.currentTimestamp)) {
        return;
    }
    // The recording may have been started between the intake's copy and here.
    if (!bufferIsFilled) {
        std::memcpy(session->freeBuffer(), pixelsOf(camera), std::min(bytesOf(camera), session->bufferSize()));
        bufferIsFilled = true;
    }
    const bool mayWait = playsAFile(camera) && !camera.initParameters.rlx_real_time;
    session->offer(factsOfFrame(camera), mayWait ? RecordingSession::WhenFull::WAIT : RecordingSession::WhenFull::DROP);
    camera.recordingFrameBuffer = session->freeBuffer();
    camera.status = getRecordingStatus(camera);
}

RecordingSession::Facts RlxPlaybackRecorder::factsOfFrame(const CameraFrameContext& camera) const {
    RecordingSession::Facts facts;
    facts.time = camera.currentTimestamp;
    facts.has_imu = session->header().has_imu;
    {
        const MutexLock lock(camera.imuMutex);
        facts.imu = camera.currentImu;
    }
    facts.metadata = metadataOfFrame(camera, facts.imu);
    return facts;
}

rlxSampleMetadata RlxPlaybackRecorder::metadataOfFrame(const CameraFrameContext& camera, const IMUPacket& imu) const {
    rlxSampleMetadata metadata{};
    if (playsAFile(camera)) {
        (void)camera.reader.getCurrentMetadata(metadata);
    } else if (camera.initParameters.input.kind() == KIND_STREAM && camera.streamInput != nullptr) {
        if (camera.streamInput->frameHasMetadata()) {
            metadata = camera.streamInput->frameMetadata();
        }
    } else if (session->header().has_imu) {
        rlxrw::convertMetadataFromMCUData(metadata, imu);
        rlxrw::setPose(metadata, Transform(session->header().imu_to_camera));
    }
    return metadata;
}

void RlxPlaybackRecorder::endSession(const CameraFrameContext& camera) {
    if (session == nullptr) {
        return;
    }
    camera.recordingEnabled.store(false, std::memory_order_release);
    camera.recordingStateFlag.store(false, std::memory_order_release);
    session->stop(RecordingSession::kLongestWait);
    camera.status = session->status();
    failureReason = session->failure();
    camera.recordingFrameBuffer = nullptr;
    session.reset();
    ORU_LOG(Info, "{} Recording {} ended: {} frames written, {} dropped", kTagKoru,
            camera.parameters.video_filename.get(), camera.status.frames_written, camera.status.frames_dropped);
}

void RlxPlaybackRecorder::disableRecording(CameraFrameContext camera) {
    camera.recordingEnabled.store(false, std::memory_order_release);
    guarded("The end", [&] { endSession(camera); });
}

std::string RlxPlaybackRecorder::calibrationText(const CameraFrameContext& camera, int serialNumber) const {
    ConfManager conf;
    openConfFile(camera.initParameters.settings_path.get(), serialNumber, conf);
    std::string text = conf.is_open ? readText(conf.path) : std::string{};
    return text.empty() ? calibrationSource.text(serialNumber) : text;
}

RlxRecordingHeader RlxPlaybackRecorder::headerFor(const CameraFrameContext& camera,
                                                  const RecordingParameters& parameters,
                                                  const RlxRecordingHeader& source) const {
    RlxRecordingHeader header = source;
    header.version = endsWith(parameters.video_filename.get(), ".rlx") ? 1 : 2;
    header.compression_mode = parameters.compression_mode;
    header.bitrate = parameters.bitrate;
    const auto target = static_cast<float>(parameters.target_fps);
    header.fps = parameters.target_fps > 0 && target < source.fps ? target : source.fps;
    header.calibration_text = calibrationText(camera, source.serial_number);
    return header;
}

ERROR_CODE RlxPlaybackRecorder::startSession(const CameraFrameContext& camera, const RecordingParameters& parameters,
                                             const RlxRecordingHeader& source) {
    if (session != nullptr) {
        return INVALID_CALL;
    }
    const char* path = parameters.video_filename.c_str();
    const RlxRecordingHeader header = headerFor(camera, parameters, source);
    const int result =
        parameters.overwrite ? camera.recorder.create(path, header) : camera.recorder.createNew(path, header);
    if (result != rlxrw::RLX_CREATED) {
        return result == rlxrw::RLX_NO_ENCODER ? RLX_CODEC_UNAVAILABLE : INVALID_PARAMETER;
    }
    session = std::make_unique<RecordingSession>(camera.recorder, header, systemClock);
    rate.start(parameters.target_fps, source.fps);
    bufferIsFilled = false;
    camera.parameters = parameters;
    camera.recordingFrameBuffer = session->freeBuffer();
    camera.recordingStateFlag.store(false, std::memory_order_release);
    camera.recordingEnabled.store(true, std::memory_order_release);
    camera.status = session->status();
    return SUCCESS;
}

void RlxPlaybackRecorder::pauseRecording(CameraFrameContext camera, bool paused) {
    if (session != nullptr) {
        camera.recordingStateFlag.store(paused, std::memory_order_release);
        camera.status.paused = paused;
    }
}

void sayWhy(const RecordingStatus& status, const std::string& reason) {
    if (status.last_result != SUCCESS && !reason.empty()) {
        ORU_REASON("{}", reason);
    }
}

RecordingStatus RlxPlaybackRecorder::getRecordingStatus(CameraFrameContext camera) {
    if (session == nullptr) {
        sayWhy(camera.status, failureReason);
        return camera.status;
    }
    RecordingStatus status = session->status();
    if (status.last_result != SUCCESS) {
        sayWhy(status, session->failure());
    }
    status.paused = camera.recordingStateFlag.load(std::memory_order_acquire);
    return status;
}

ERROR_CODE RlxPlaybackRecorder::setRLXPosition(CameraFrameContext camera, int frame) {
    if (!playsAFile(camera)) {
        return INVALID_CALL;
    }
    if (frame < 0 || frame >= camera.reader.frameCount()) {
        return INVALID_PARAMETER;
    }
    camera.reader.setPosition(frame);
    pacer.restart();
    return SUCCESS;
}

ERROR_CODE RlxPlaybackRecorder::setRLXPositionAt(CameraFrameContext camera, Timestamp time) {
    const int count = camera.reader.frameCount();
    int frame = 0;
    while (frame < count && camera.reader.frameTime(frame) < time) {
        ++frame;
    }
    return setRLXPosition(camera, frame);
}

}  // namespace

std::unique_ptr<PlaybackRecorder> makePlaybackRecorder(Clock& clock, CalibrationSource& calibration) {
    return std::make_unique<RlxPlaybackRecorder>(clock, calibration);
}

}  // namespace oru
