#pragma once

#include <array>
#include <cstdint>
#include <functional>

#include "oru/String.hpp"
#include "oru/export.hpp"
#include "oru/types.hpp"

namespace oru {

/// What a recording looks like before its frames are read.
enum class RECORDING_CONDITION : int32_t {
    INTACT,
    MISSING,
    NOT_A_FILE,  ///< a directory or a device
    UNREADABLE,  ///< no permission, or the medium fails
    EMPTY,
    NOT_OURS,
    TOO_NEW,         ///< written in a version that this reader does not know
    BEING_RECORDED,  ///< or being repaired or copied: somebody writes it
    NO_WHOLE_FRAME,
    UNFINISHED,  ///< recording or repair ended without a clean close
    CUT_OFF,     ///< finished, then shortened
    DAMAGED,     ///< head or index do not belong to each other, or frames are damaged
};

/// A sentence's end for people, as in "FILE is empty".
ORU_API const char* describe(RECORDING_CONDITION condition);
/// Whether RecordedFile::repair can help.
ORU_API bool isRepairable(RECORDING_CONDITION condition);

/// What the head of a recording says.
struct RecordingFacts {
    int32_t version = 0;  ///< of the format, 1 or 2; 0 when no head could be read
    int32_t serial_number = 0;
    MODEL model = MODEL_UNKNOWN;
    uint32_t camera_firmware = 0;
    uint32_t sensors_firmware = 0;
    Resolution size;
    float fps = 0.0F;
    bool flipped = false;
    bool decompression_platform = false;  ///< the recording machine decodes this mode in real time
    RLX_COMPRESSION_MODE compression_mode = RLX_RAW;
    uint32_t bitrate = 0;  ///< kbit/s; 0 automatic
    int32_t sharpness = 0;
    bool has_imu = false;
    bool has_imu_to_camera = false;
    Transform imu_to_camera;                  ///< takes camera coordinates to the sensor's, millimetres
    std::array<float, 36> imu_calibration{};  ///< four blocks of nine, as the camera's sensor board gave them
    String calibration_text;                  ///< the camera's calibration file; empty: none was recorded
};

/// One recorded inertial sample as the sensor board gave it, on the image's clock and along the camera's axes.
struct RecordedSample {
    Timestamp timestamp = 0;
    bool synced_with_image = false;
    Vector3<float> angular_velocity;     ///< degrees per second, factory calibration applied
    Vector3<float> linear_acceleration;  ///< m/s^2, with gravity's reaction, factory calibration applied
    Vector4<float> orientation;          ///< x, y, z, w: of the sensor board to its world
    float temperature = 0.0F;            ///< of the sensor board, degrees Celsius
};

/// Told now and then how many bytes of how many are done; false stops the work. Called on the thread that works.
using RecordingProgress = std::function<bool(uint64_t done, uint64_t total)>;

/// What a check of every byte found; meaningless after it was stopped.
struct RecordingCheck {
    RECORDING_CONDITION condition = RECORDING_CONDITION::MISSING;
    uint64_t frames = 0;       ///< whole ones
    uint64_t damaged = 0;      ///< in the index, but not whole; or missing
    uint64_t imu_packets = 0;  ///< inertial samples
};

enum REPAIR_RESULT : int32_t {
    REPAIR_DONE,            ///< playable now, or already intact
    REPAIR_UNREADABLE,      ///< no recording, no whole frame, or stopped
    REPAIR_NOT_WRITABLE,    ///< the output exists or cannot be made, the disk is full, or there is no room in place
    REPAIR_UNKNOWN_FORMAT,  ///< a compression that this version does not know
};

struct RecordingRepair {
    REPAIR_RESULT result = REPAIR_UNREADABLE;
    RECORDING_CONDITION condition = RECORDING_CONDITION::MISSING;  ///< of the input
    uint64_t frames_recovered = 0;
    uint64_t frames_lost = 0;  ///< known to have been in the file: bad images and missing numbers
    bool frame_cut = false;    ///< behind the last whole frame there was at least one more
    uint64_t bytes_cut = 0;    ///< behind the last whole frame
};

}  // namespace oru
