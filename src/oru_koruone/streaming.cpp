#include <algorithm>

#include "oru_koruone/clamped.hpp"
#include "oru_koruone/input_operations.hpp"
#include "oru_koruone/report.hpp"
#include "utils/env_var.hpp"

namespace oru {
namespace {

constexpr int32_t kLongestGop = 256;
constexpr uint16_t kSmallestChunk = 1024;
constexpr uint16_t kLargestChunk = 65000;
constexpr uint32_t kLowestBitrate = 1000;
constexpr uint32_t kHighestBitrate = 60000;
constexpr uint64_t kPixelsPerBit = 5000;
constexpr float kDenseShare = 0.8F;

/// Above `most`: clamped with a warning that names the parameter as in StreamingParameters.
template <class T>
void clampToMost(const char* name, T& value, T most) {
    if (value > most) {
        ORU_LOG(Warning, "{} Requested {}: {}, maximum accepted value: {}, the value is clamped.", kTagStreaming, name,
                value, most);
        value = most;
    }
}

template <class T>
void clampToLeast(const char* name, T& value, T least) {
    if (value < least) {
        ORU_LOG(Warning, "{} Requested {}: {}, minimum accepted value: {}, the value is clamped.", kTagStreaming, name,
                value, least);
        value = least;
    }
}

uint32_t automaticBitrate(const Resolution& size, uint32_t fps, STREAMING_CODEC codec) {
    const auto plain = static_cast<uint32_t>(size.area() * fps / kPixelsPerBit);
    return codec == DENSE_CODEC ? static_cast<uint32_t>(static_cast<float>(plain) * kDenseShare) : plain;
}

}  // namespace

void CameraOneImpl::useStreamKeys(const StreamKeys& incoming, const StreamKeys& outgoing) {
    incomingKeys = incoming;
    outgoingKeys = outgoing;
}

ERROR_CODE CameraOneImpl::enableStreaming(StreamingParameters parameters) {
    ORU_RETURN_IF_CLOSED(INVALID_CALL);
    if (streamingEnabled.load(std::memory_order_acquire)) {
        disableStreaming();
    }
    int status = SENDER_RUNNING;
    {
        const MutexLock lock(outputMutex);
        streamingParameters = parameters;
        const uint32_t fps = streamFps(input().source_fps(*this));
        completeStreamingParameters(fps);
        destroySender();
        streamOutput = collaborators->makeStreamOutput(STREAMING_MODE_0, initParameters.verbosity != 0);
        if (!streamOutput) {
            return NOT_SUPPORTED;
        }
        streamOutput->useKeys(outgoingKeys);
        status = streamOutput->open(senderConfiguration(fps));
        streamingEnabled.store(true, std::memory_order_release);
    }
    if (status == SENDER_RUNNING) {
        streamOutput->setImuCalibration(imuCalibration);
        streamGrabber = grabber;
        streamOutput->setGrabber(grabber.get());
        return SUCCESS;
    }
    ORU_LOG(Error, "{} Cannot enable streaming: Err Code {}", kTagStreaming, status);
    disableStreaming();
    return status < SENDER_RUNNING ? STREAM_SETUP_FAILED : FAILURE;
}

/// The target rate when it is valid for the source, else the source's.
uint32_t CameraOneImpl::streamFps(uint32_t source) const {
    const uint32_t target = streamingParameters.target_fps;
    if (target == 0) {
        return source;
    }
    const bool known = target == 15 || target == 30 || target == 60;
    if (known && source % target == 0 && target <= source) {
        return target;
    }
    ORU_LOG(Warning, "{} Requested target FPS for streaming is not valid ({} fps). Target FPS will be reset to {}.",
            kTagStreaming, target, source);
    return source;
}

void CameraOneImpl::completeStreamingParameters(uint32_t fps) {
    StreamingParameters& p = streamingParameters;
    if (p.gop_size <= 0) {
        p.gop_size = clampedTo<int32_t>(2.0 * fps);
    }
    clampToMost("gop_size", p.gop_size, kLongestGop);
    clampToMost("chunk_size", p.chunk_size, kLargestChunk);
    clampToLeast("chunk_size", p.chunk_size, kSmallestChunk);
    if (p.bitrate == 0) {
        p.bitrate = automaticBitrate(imageSize, fps, p.codec);
    }
    clampToMost("bitrate", p.bitrate, kHighestBitrate);
    clampToLeast("bitrate", p.bitrate, kLowestBitrate);
}

UDPOutConfig CameraOneImpl::senderConfiguration(uint32_t fps) const {
    UDPOutConfig configuration{};
    configuration.codec = streamingParameters.codec;
    configuration.port = streamingParameters.port;
    configuration.bitrate = streamingParameters.bitrate;
    configuration.gop_size = streamingParameters.gop_size;
    configuration.adaptive_bitrate = streamingParameters.adaptive_bitrate;
    configuration.chunk_size = streamingParameters.chunk_size;
    configuration.width = static_cast<uint32_t>(imageSize.width);
    configuration.height = static_cast<uint32_t>(imageSize.height);
    configuration.fps = static_cast<int32_t>(fps);
    configuration.serial_number = static_cast<uint32_t>(cameraInformation.serial_number);
    configuration.camera_fw = cameraInformation.configuration.firmware_version;
    configuration.sensors_fw = cameraInformation.sensors.firmware_version;
    configuration.model = cameraModel;
    configuration.flipped = imageFlipped;
    configuration.version = check_env_var_stream_version();
    return configuration;
}

void CameraOneImpl::disableStreaming() {
    ORU_RETURN_IF_CLOSED();
    if (!streamingEnabled.load(std::memory_order_acquire)) {
        return;
    }
    const MutexLock lock(outputMutex);
    destroySender();
    streamingEnabled.store(false, std::memory_order_release);
}

bool CameraOneImpl::isStreamingEnabled() {
    ORU_RETURN_IF_CLOSED(false);
    const MutexLock lock(outputMutex);
    return streamingEnabled.load(std::memory_order_acquire) && streamOutput && streamOutput->isRunning();
}

StreamingParameters CameraOneImpl::getStreamingParameters() {
    ORU_RETURN_IF_CLOSED(StreamingParameters{});
    const MutexLock lock(outputMutex);
    return streamingParameters;
}

StreamingStatus CameraOneImpl::getStreamingStatus() {
    ORU_RETURN_IF_CLOSED(StreamingStatus{});
    const MutexLock lock(outputMutex);
    return streamOutput ? streamOutput->status() : StreamingStatus{};
}

}  // namespace oru
