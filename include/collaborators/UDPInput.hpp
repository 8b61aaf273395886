#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "collaborators/RLXVideo.hpp"
#include "oru/types.hpp"
#include "oru_input/mcu/IMUPacket.hpp"

namespace oru {

/// What the sender says of its camera.
struct StreamDescription {
    int serial_number = 0;
    MODEL model = MODEL_UNKNOWN;
    unsigned camera_fw = 0;
    unsigned sensors_fw = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    bool has_imu = false;
    int flip_state = 0;
};

/// IMU-to-camera pose as announced; translation in millimetres. All zero when none is announced.
struct StreamImuPose {
    float w = 0.0F, x = 0.0F, y = 0.0F, z = 0.0F;
    float tx = 0.0F, ty = 0.0F, tz = 0.0F;
};

/// What the receiver's open answers.
enum STREAM_CONNECT_RESULT : int {
    STREAM_NO_RESOURCES = 1,  ///< no memory or no thread to be had
    STREAM_CONNECTED = 0,
    STREAM_BAD_ADDRESS = -1,    ///< no host or no port
    STREAM_UNKNOWN_HOST = -2,   ///< the name does not resolve
    STREAM_NO_ANSWER = -3,      ///< nobody sends there
    STREAM_KEY_REFUSED = -4,    ///< the sender refuses this receiver, for its key or for too many attempts
    STREAM_NOT_DESCRIBED = -5,  ///< connected, but no camera described itself
    STREAM_UNUSABLE_KEY = -6,   ///< a key cannot be used
};

/// Receiver of a network stream, with threads of its own.
/// Threads: open, readStreamData, what it says of its frame, takeImuPacketsBefore and recorder() come from the thread
/// that grabs. Beside them come, from any threads, what the sender announced (description, announcedFps,
/// announcedImuPose, announcedImuCalibration, versionByte), canSupplyCurrentImu, getCurrentIMU, counters and status;
/// the controls and controlRefusal from one thread at a time.
class UDPInput {
public:
    virtual ~UDPInput() = default;

    /// For the next open(). Without this call the keys come from the environment.
    virtual void useKeys(const StreamKeys& /*keys*/) {}
    /// Connects and waits for the sender's description, at most 3 s: STREAM_CONNECT_RESULT. The camera fails with
    /// STREAM_NOT_DESCRIBED and every positive answer; the other negative ones are a failed set-up. It passes 0 as the
    /// last argument.
    virtual int open(String ip, unsigned short port, int unused) = 0;
    /// Waits up to 20 ms for a newer decoded frame and writes it as YUYV; false leaves `image` untouched. After the end
    /// of the stream it does not wait.
    virtual bool readStreamData(unsigned char* image, unsigned char* second) = 0;

    // Of the frame that readStreamData delivered last.
    virtual Timestamp frameTimestamp() = 0;
    virtual bool frameHasMetadata() = 0;
    virtual rlxrw::rlxSampleMetadata frameMetadata() = 0;

    // Of the sender, after a successful open.
    virtual StreamDescription description() = 0;
    virtual int announcedFps() = 0;
    virtual StreamImuPose announcedImuPose() = 0;
    virtual int versionByte() = 0;  ///< 4 for protocol version 1, 5 for version 2
    /// Of the sender's inertial sensor; neutral when none is announced.
    virtual ImuCalibration announcedImuCalibration() { return {}; }

    virtual bool canSupplyCurrentImu() = 0;
    virtual bool getCurrentIMU(IMUPacket& packet) = 0;
    /// Removes and returns the stored packets earlier than `time`, in time order.
    virtual std::vector<IMUPacket> takeImuPacketsBefore(Timestamp time) = 0;
    /// The recorder that records this input.
    virtual rlxrw::RLXVideo& recorder() = 0;
    [[nodiscard]] virtual FrameCounters counters() const = 0;
    [[nodiscard]] virtual StreamInputStatus status() const { return {}; }

    // Controls of the sending camera.
    virtual bool valueRange(VIDEO_SETTINGS setting, int& min, int& max) = 0;
    virtual int getGrabberSettingsValue(VIDEO_SETTINGS setting) = 0;
    virtual int setGrabberSettingsValue(VIDEO_SETTINGS setting, int value, bool automatic) = 0;
    virtual int getGrabberSettingsValue(VIDEO_SETTINGS setting, int side, Rect& region) = 0;
    virtual int setGrabberSettingsValue(VIDEO_SETTINGS setting, int side, Rect region, bool reset) = 0;
    /// Why the sender, or the way to it, did not carry out the last of these; empty when it did.
    virtual std::string controlRefusal() { return {}; }
};

}  // namespace oru
