#include "oru/error_code.hpp"
#include "oru/types.hpp"

namespace oru {
namespace {

const char* textOf(ERROR_CODE code) {
    switch (code) {
        case CONFIGURATION_ADJUSTED:
            return "The camera was set up with another HDR mode than the one asked for";
        case CAMERA_UNAVAILABLE:
            return "The camera is not open or no longer delivers frames";
        case SUCCESS:
            return "Success";
        case FAILURE:
            return "The operation failed";
        case STREAM_SETUP_FAILED:
            return "The network stream could not be set up";
        case DEVICE_NOT_FOUND:
            return "The camera or its sensor device was not found";
        case SENSORS_SERIAL_INVALID:
            return "The sensor device returned a wrong serial number";
        case SENSOR_DATA_UNAVAILABLE:
            return "No sensor data is available";
        case RESOLUTION_NOT_SUPPORTED:
            return "The resolution is not supported by this camera or larger than its image";
        case CALIBRATION_MISSING:
            return "The camera's calibration file is missing and could not be fetched";
        case CALIBRATION_INCOMPLETE:
            return "The calibration file has no section for this resolution";
        case RLX_FILE_UNREADABLE:
            return "The recorded file cannot be read";
        case RLX_CODEC_UNAVAILABLE:
            return "This system has no codec for the compression of the recorded file";
        case END_OF_INPUT:
            return "The input has ended";
        case INVALID_PARAMETER:
            return "A parameter is outside its domain";
        case CAMERA_NOT_READY:
            return "The camera is busy or brought no frame in time";
        case INVALID_CALL:
            return "The operation is not possible in the camera's present state";
        case INSTALLATION_DAMAGED:
            return "The installation is damaged";
        case DEVICE_SETUP_FAILED:
            return "The camera could not be set up";
        case CAMERA_IN_USE:
            return "The camera is in use";
        case NOT_SUPPORTED:
            return "The operation is not supported for this input or camera model";
        case SENSORS_NOT_PRESENT:
            return "The camera has no sensors";
    }
    return "Unknown error";
}

}  // namespace

String toString(const ERROR_CODE& code) {
    return textOf(code);
}

float getScaleMillimeter(UNIT unit) {
    switch (unit) {
        case UNIT_MILLIMETER:
            return 1.0F;
        case UNIT_CENTIMETER:
            return 10.0F;
        case UNIT_METER:
            return 1000.0F;
        case UNIT_INCH:
            return 25.4F;
        case UNIT_FOOT:
            return 304.8F;
    }
    return 1.0F;
}

}  // namespace oru
