#pragma once

#include <cstdint>

#include "oru/String.hpp"
#include "oru/export.hpp"

namespace oru {

/// Result of every public operation. The values are part of the interface and never renumbered.
enum ERROR_CODE : int32_t {
    CONFIGURATION_ADJUSTED =
        -4,  ///< set up with another HDR mode than asked; not open: open again with getInitParameters()
    CAMERA_UNAVAILABLE = -1,  ///< not open; or the source failed and fast_fail_grab is set
    SUCCESS = 0,
    FAILURE = 1,                   ///< the source failed, there is no input, or a device refused
    STREAM_SETUP_FAILED = 2,       ///< a stream sender or receiver could not be set up
    DEVICE_NOT_FOUND = 4,          ///< no such camera is attached; no ready sensor device
    SENSORS_SERIAL_INVALID = 5,    ///< the sensor device returned a wrong serial number
    SENSOR_DATA_UNAVAILABLE = 6,   ///< no current IMU sample; sensor failure at open
    RESOLUTION_NOT_SUPPORTED = 7,  ///< larger than the camera image, or not a mode of the model
    CALIBRATION_MISSING = 9,       ///< no calibration file, and none could be fetched
    CALIBRATION_INCOMPLETE = 10,   ///< the calibration file has no section for the working resolution
    RLX_FILE_UNREADABLE = 11,      ///< the recorded file cannot be loaded
    RLX_CODEC_UNAVAILABLE = 13,    ///< no decoder here for the recorded file, no encoder for the recording
    END_OF_INPUT = 14,             ///< the input has ended; not a fault
    INVALID_PARAMETER = 17,        ///< an argument is outside its domain
    CAMERA_NOT_READY = 19,         ///< another grab() is running, or no frame came within the budget
    INVALID_CALL = 21,             ///< not possible now: not open, or not with this input
    INSTALLATION_DAMAGED = 22,     ///< the grabber found a damaged installation
    DEVICE_SETUP_FAILED = 26,      ///< the grabber's set-up failed, or the model is unknown
    CAMERA_IN_USE = 28,            ///< another process or object holds the camera
    NOT_SUPPORTED = 31,            ///< not for this input or this model
    SENSORS_NOT_PRESENT = 32,      ///< the input carries no sensors
};

/// One short sentence for a code; "Unknown error" for a value that is not listed. Threads: any.
ORU_API String toString(const ERROR_CODE& code);

}  // namespace oru
