#pragma once

#include <cstdint>

#include "collaborators/RLXVideo.hpp"
#include "oru/types.hpp"
#include "oru_input/grabber/LiveCameraGrabber.hpp"
#include "oru_input/mcu/IMUPacket.hpp"

namespace oru {

enum STREAMING_MODE : int32_t { STREAMING_MODE_0 };

/// Configuration of a stream sender; 96 bytes.
struct UDPOutConfig {
    int32_t codec;
    uint16_t port;
    uint32_t bitrate;  ///< kbit/s
    int32_t unused_4;
    int32_t gop_size;
    bool adaptive_bitrate;
    uint16_t chunk_size;
    uint32_t width;
    uint32_t height;
    uint64_t unused_10;
    int32_t fps;
    uint32_t serial_number;
    uint32_t camera_fw;
    uint32_t sensors_fw;
    int32_t model;
    bool flipped;
    unsigned char unused_17[24];
    int32_t version;  ///< protocol version, 1 or 2
    int32_t unused_19;
};
static_assert(sizeof(UDPOutConfig) == 96);

/// What the sender's open answers. The camera takes the negative ones for a failed set-up.
enum STREAM_SEND_RESULT : int {
    SENDER_RUNNING = 0,
    SENDER_NO_ENCODER = 1,          ///< for this codec and size
    SENDER_NO_MEMORY = 2,           ///< for the frames that wait
    SENDER_BAD_CONFIGURATION = -1,  ///< no such size, codec, rate or port
    SENDER_NO_SOCKET = -2,          ///< the listening socket cannot be prepared
    SENDER_PORT_TAKEN = -3,         ///< or not to be had
    SENDER_UNUSABLE_KEY = -6,       ///< a key cannot be used
};

/// Sender of a network stream, with threads of its own; the destructor stops them.
/// Threads: one at a time, but for isBusy, isRunning, carriesImu and counters, which any thread may call.
class UDPOutput {
public:
    virtual ~UDPOutput() = default;

    /// For the next open(). Without this call the keys come from the environment.
    virtual void useKeys(const StreamKeys& /*keys*/) {}
    /// STREAM_SEND_RESULT.
    virtual int open(UDPOutConfig configuration) = 0;
    /// The live camera whose controls and poses are announced; may be null. It outlives the sender.
    virtual void setGrabber(LiveCameraGrabber* grabber) = 0;
    /// Of the inertial sensor whose samples are sent, for receivers. Before setGrabber and the first frame.
    virtual void setImuCalibration(const ImuCalibration& /*calibration*/) {}
    /// Hands a frame over. `pixels` may be read until waitingestYUVFrameProcessing returns or isBusy is false.
    virtual void asyncingestYUVFrame(unsigned char* pixels, Timestamp time, rlxrw::rlxSampleMetadata metadata,
                                     int size) = 0;
    /// Returns, in bounded time, when the last hand-off is no longer read.
    virtual void waitingestYUVFrameProcessing() = 0;
    /// A frame was not handed over because the sender was busy.
    virtual void noteSkippedFrame() {}
    virtual void ingestIMU(IMUPacket packet) = 0;
    [[nodiscard]] virtual bool isBusy() const = 0;
    [[nodiscard]] virtual bool isRunning() const = 0;
    [[nodiscard]] virtual bool carriesImu() const = 0;
    [[nodiscard]] virtual FrameCounters counters() const = 0;
    /// Threads: any.
    [[nodiscard]] virtual StreamingStatus status() const { return {}; }
};

}  // namespace oru
