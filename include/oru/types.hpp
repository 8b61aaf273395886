#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "oru/String.hpp"
#include "oru/error_code.hpp"
#include "oru/export.hpp"
#include "oru/geometry.hpp"
#include "oru/image.hpp"
#include "oru/sensors.hpp"
#include "oru/settings.hpp"

struct CUctx_st;
struct CUstream_st;

namespace oru {

/// Kind of input as the public interface names it.
enum INPUT_TYPE : int32_t {
    INPUT_TYPE_NONE,
    INPUT_TYPE_RLX,
    INPUT_TYPE_STREAM,
    GMSL,
    INPUT_TYPE_PENDING,  ///< a grabber before open() has chosen
};

/// Camera model. Other values occur in device lists and are not driven by this module.
enum MODEL : int32_t {
    MODEL_MONO_3UM = 30,  ///< 3.0 micrometre pixels, sensor family 1
    MODEL_MONO_2UM = 31,  ///< 2.0 micrometre pixels, sensor family 2
    MODEL_UNKNOWN = 32,
};

/// The application's length unit.
enum UNIT : int32_t { UNIT_MILLIMETER, UNIT_CENTIMETER, UNIT_METER, UNIT_INCH, UNIT_FOOT };

/// The application's x, y and z; the guide draws them, oru/frames.hpp has their matrices. 1 and 4 are reflections.
enum AXIS_CONVENTION : int32_t {
    AXIS_CONVENTION_0,  ///< right, down, forward: the camera's own
    AXIS_CONVENTION_1,  ///< right, up, forward
    AXIS_CONVENTION_2,  ///< right, up, backward
    AXIS_CONVENTION_3,  ///< right, backward, down
    AXIS_CONVENTION_4,  ///< down, backward, right
    AXIS_CONVENTION_5,  ///< up, backward, right
};

enum InputKind : int32_t { KIND_RLX_FILE = 2, KIND_STREAM, KIND_GMSL_ID, KIND_GMSL_SERIAL };
enum BUS_TYPE : int32_t { BUS_TYPE_2 = 2 };
enum CAMERA_TYPE : int32_t { CAMERA_TYPE_0 };

/// Millimetres in one unit; 1 for a value that is not listed.
ORU_API float getScaleMillimeter(UNIT unit);

/// Which input open() takes. A description that was never set means the first free live camera.
class ORU_API InputType {
public:
    InputType() = default;
    InputType(InputKind kind, String first, String second, bool set);

    /// Reads what a person writes: HOST:PORT or [IPV6]:PORT is a stream, serial:N a live camera by its serial number,
    /// everything else the name of a recorded file. A name with a colon in it is a file when it has a slash or ends in
    /// .rlx or .rlx2. For what is none of them `refusal` says in one sentence why, and `input` stays as it is.
    /// @retval INVALID_PARAMETER none of them
    [[nodiscard]] static ERROR_CODE fromText(const String& text, InputType& input, String& refusal);

    void setFromFile(String path);
    void setFromStream(String ip, unsigned short port = 30000);
    void setFromSerialNumber(unsigned serial);
    /// Id -1 takes the lowest free camera.
    void setFromCameraID(int id, BUS_TYPE bus = BUS_TYPE_2, CAMERA_TYPE type = CAMERA_TYPE_0);

    [[nodiscard]] InputKind kind() const { return inputKind; }
    /// The path, the address with its port, the decimal id or the decimal serial number.
    [[nodiscard]] const String& first() const { return firstText; }
    [[nodiscard]] const String& second() const { return secondText; }
    [[nodiscard]] bool isSet() const { return described; }

private:
    InputKind inputKind = KIND_GMSL_ID;
    String firstText;
    String secondText;
    bool described = false;
};

/// Parameters of open(). The camera keeps a copy and adjusts it; getInitParameters() shows the adjusted one.
struct InitParametersOne {
    RESOLUTION requested_resolution = AUTO;
    int32_t requested_fps = 0;  ///< frames per second; 0 or less asks for 30 on a live camera
    int32_t image_flip = 0;     ///< 0 no, 1 turned by 180 degrees, 2 as the camera is mounted
    bool rlx_real_time = true;  ///< play a recorded file at its recorded pace
    UNIT length_unit = UNIT_MILLIMETER;
    AXIS_CONVENTION axis_convention = AXIS_CONVENTION_0;
    CUctx_st* cuda_context = nullptr;  ///< the application's own, or null: open finds or makes one
    int32_t verbosity = 0;
    String reserved_text_1;
    InputType input;
    String settings_path;  ///< prefix of the calibration file's name: ends with "/"; a "~" is the home directory
    String reserved_text_2;
    float reserved_float = 5.0F;
    bool fast_fail_grab = false;  ///< give up after 50 rounds and answer CAMERA_UNAVAILABLE
    bool use_hdr = false;
    /// Of a recorded file that is still being written, by a recorder or a copy: go on as it grows. END_OF_INPUT then
    /// comes when it is finished, or when nothing has come for five seconds.
    bool rlx_follow = false;
};

/// Which calibration a recording or a stream is rectified with. A live camera has one, its stored file.
enum CALIBRATION_CHOICE : int32_t {
    CALIBRATION_DEFAULT,  ///< as KORU_CALIBRATION says (own or local); else the one that it carries, unless a
                          ///< `settings_path` is given and holds a file of that camera
    CALIBRATION_OWN,      ///< the one that it carries; without it a local file
    CALIBRATION_LOCAL,    ///< the camera's file on this machine; without it the one that it carries
};

/// What is known of one grabbed frame beside its image, as it was when the sensor took it. A source knows some fields
/// and not others: a field without its bit in `known` is unset.
struct FrameInfo {
    enum FIELD : uint32_t {
        NUMBER = 1U << 0U,
        CAPTURE_TIME = 1U << 1U,
        EXPOSURE_TIME = 1U << 2U,
        ANALOGUE_GAIN = 1U << 3U,
        DIGITAL_GAIN = 1U << 4U,
        WHITE_BALANCE = 1U << 5U,
        SENSOR_TEMPERATURE = 1U << 6U,
        HDR = 1U << 7U,
        REGION = 1U << 8U,
        SYNC_COUNT = 1U << 9U,
        LOST_BEFORE = 1U << 10U,
    };

    uint32_t known = 0;                 ///< a bit for each FIELD that the source knows
    uint64_t number = 0;                ///< of the frame at its source, from 0; frames that were lost count as well
    Timestamp capture_time = 0;         ///< nanoseconds since the Unix epoch, as getTimestamp(IMAGE)
    uint32_t exposure_time_us = 0;      ///< microseconds
    uint32_t analogue_gain_mdb = 0;     ///< thousandths of a decibel
    uint32_t digital_gain_mdb = 0;      ///< thousandths of a decibel
    uint32_t white_balance_k = 0;       ///< colour temperature that is shown as grey, kelvin
    float sensor_temperature_c = 0.0F;  ///< of the image sensor, degrees Celsius
    bool hdr = false;                   ///< taken in the HDR mode
    Rect region;                        ///< that the automatic exposure looked at, pixels of the image
    int32_t sync_count = 0;             ///< of the inertial sample that belongs to the frame; above 0: taken with it
    uint64_t lost_before = 0;           ///< frames between this one and the one grabbed before it

    [[nodiscard]] constexpr bool knows(FIELD field) const { return (known & field) != 0; }
};

/// Where the frames of an input went: produced = delivered + all the others, always.
/// A frame that still waits to be taken is not counted yet.
struct FrameCounters {
    uint64_t produced = 0;
    uint64_t delivered = 0;
    uint64_t sensor_gap = 0;   ///< never came out of the sensor or over the link
    uint64_t overwritten = 0;  ///< replaced by a newer frame before it was taken
    uint64_t late = 0;         ///< skipped to keep a recorded pace
    uint64_t queue_full = 0;
    uint64_t decode_failed = 0;
    uint64_t damaged = 0;
    uint64_t network = 0;
    uint64_t sender_busy = 0;

    [[nodiscard]] uint64_t lost() const {
        return sensor_gap + overwritten + late + queue_full + decode_failed + damaged + network + sender_busy;
    }
    friend bool operator==(const FrameCounters&, const FrameCounters&) = default;
};

enum STREAMING_CODEC : int32_t { PLAIN_CODEC, DENSE_CODEC };

/// Parameters of enableStreaming(); out-of-range values are clamped with a warning.
struct StreamingParameters {
    STREAMING_CODEC codec = DENSE_CODEC;
    uint16_t port = 30000;
    uint32_t bitrate = 0;   ///< kbit/s, 1000 to 60000; 0 chooses by size and rate
    int32_t gop_size = -1;  ///< frames, up to 256; 0 or less: two seconds
    bool adaptive_bitrate = false;
    uint16_t chunk_size = 16084;  ///< bytes, 1024 to 65000
    uint32_t target_fps = 0;      ///< 15, 30 or 60, dividing the source rate; 0: the source rate
};

/// The keys of one end of a stream, each of 10 to 79 characters. One that is not set comes from the environment:
/// KORU_STREAM_PASSPHRASE, KORU_STREAM_CONTROL_PASSPHRASE. An empty text is no key, whatever the environment says.
struct StreamKeys {
    std::optional<String> viewing;  ///< of a sender: who lacks it sees nothing; the stream is encrypted
    std::optional<String> control;  ///< of a sender: who holds it may control the camera; none: nobody from outside
};

/// An outgoing stream at this moment. The counts run from enableStreaming() on.
struct StreamingStatus {
    uint32_t receivers = 0;         ///< connected now
    uint32_t bitrate = 0;           ///< kbit/s that the encoder aims at now
    uint64_t frames_sent = 0;       ///< encoded and handed to at least one receiver
    uint64_t frames_held_back = 0;  ///< that one receiver or another did not get, because its network was too slow
    uint64_t packets_sent = 0;      ///< to all receivers together
    uint64_t packets_repeated = 0;  ///< of them, because they were lost on the way
    uint64_t bytes_sent = 0;
    uint64_t samples_lost = 0;  ///< inertial samples that one receiver or another missed, too many to send them later
    double backlog_ms = 0.0;    ///< how far the slowest receiver is behind
    FrameCounters frames;       ///< handed over by the camera: taken (delivered) or lost, by cause
};

/// An incoming stream at this moment; all zero for every other input. The counts run from open() on.
struct StreamInputStatus {
    bool connected = false;          ///< to a sender from which something came within the last second
    bool goodbye = false;            ///< the sender ended the stream, and every frame of it was taken or lost
    double last_frame_age_ms = 0.0;  ///< since a frame last came; since open() before the first
    uint64_t reconnections = 0;
    uint64_t samples_dropped = 0;  ///< inertial samples that came and that no frame can have any more: too many waited,
                                   ///< the sender's clock went back, or it started again
};

enum RLX_COMPRESSION_MODE : int32_t {
    RLX_RAW,
    RLX_H264,
    RLX_H265,
    RLX_LOSSLESS,
    RLX_FFV1,
    RLX_MODE_5,
    RLX_MODE_8 = 8,
    RLX_MODE_10 = 10,
};

/// Parameters of enableRecording().
struct RecordingParameters {
    String video_filename = "myRecording.rlx2";
    RLX_COMPRESSION_MODE compression_mode = RLX_H264;
    uint32_t bitrate = 0;     ///< kbit/s; 0 automatic
    uint32_t target_fps = 0;  ///< 0: the source's
    bool overwrite = false;
};

struct RecordingStatus {
    bool recording = false;
    bool paused = false;
    ERROR_CODE last_result = SUCCESS;
    uint64_t frames_written = 0;
    uint64_t frames_dropped = 0;
    uint64_t bytes_written = 0;
    double seconds = 0.0;
};

/// One attached camera, as the device layer lists it.
struct DeviceProperties {
    uint32_t availability = 0;  ///< 0: free to open
    int32_t id = -1;
    String path;
    MODEL model = MODEL_UNKNOWN;
    uint32_t serial_number = 0;
    std::array<unsigned char, 3> device_flags{};
    String text_1;
    String text_2;
    String text_3;
    uint32_t extra_id = 0;
};

/// Intrinsics of one image size: pinhole plus the rational, tangential and thin-prism lens model.
struct CameraParameters {
    float fx = 0.0F;  ///< pixels
    float fy = 0.0F;
    float cx = 0.0F;
    float cy = 0.0F;
    std::array<double, 12> distortion{};  ///< k1, k2, p1, p2, k3, k4, k5, k6, s1, s2, s3, s4
    float fov_v = 0.0F;                   ///< degrees
    float fov_h = 0.0F;
    float fov_d = 0.0F;
    Resolution image_size;
    float focal_length_mm = 0.0F;
};

struct CameraModeDescription {
    CameraParameters calibration;      ///< of the rectified views
    CameraParameters raw_calibration;  ///< of the unrectified views
    uint32_t firmware_version = 0;
    float fps = 0.0F;
    Resolution resolution;
};

struct SensorsDescription {
    uint32_t firmware_version = 0;
    /// Takes camera coordinates to the inertial sensor's, its name notwithstanding, along the application's axes and in
    /// its unit: the translation is where the lens lies, seen from the sensor. Transform::inverse() gives the other
    /// way.
    Transform imu_to_camera;
    Transform second_transform;  ///< the identity
    SensorParameters accelerometer;
    SensorParameters gyroscope;
    SensorParameters magnetometer;
    SensorParameters barometer;
};

/// What getCameraInformation returns.
struct CameraDescription {
    int32_t serial_number = 0;
    MODEL model = MODEL_UNKNOWN;
    INPUT_TYPE input_type = INPUT_TYPE_PENDING;
    CameraModeDescription configuration;
    SensorsDescription sensors;
};

}  // namespace oru
