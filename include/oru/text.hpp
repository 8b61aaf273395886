#pragma once

#include <ostream>
#include <type_traits>
#include <utility>

#include "oru/String.hpp"
#include "oru/VideoFile.hpp"
#include "oru/calibration.hpp"
#include "oru/controls.hpp"
#include "oru/error_code.hpp"
#include "oru/export.hpp"
#include "oru/logging.hpp"
#include "oru/recording.hpp"
#include "oru/types.hpp"

// Every enumeration and record of the interface as a text for people: toString(value), and operator<< for streams.
// An enumeration is its enumerator's name, or "TYPE(number)" for a value without one; an ERROR_CODE is its sentence.
// A record is one line of "field=value" in the order of its fields. The texts are no format to be read back.
// Threads: any.

namespace oru {

ORU_API String toString(INPUT_TYPE value);
ORU_API String toString(MODEL value);
ORU_API String toString(UNIT value);
ORU_API String toString(AXIS_CONVENTION value);
ORU_API String toString(CALIBRATION_CHOICE value);
ORU_API String toString(InputKind value);
ORU_API String toString(BUS_TYPE value);
ORU_API String toString(CAMERA_TYPE value);
ORU_API String toString(STREAMING_CODEC value);
ORU_API String toString(RLX_COMPRESSION_MODE value);
ORU_API String toString(VIEW value);
ORU_API String toString(MEM value);
ORU_API String toString(MAT_TYPE value);
ORU_API String toString(RESOLUTION value);
ORU_API String toString(TIME_REFERENCE value);
ORU_API String toString(SENSOR_TYPE value);
ORU_API String toString(SENSORS_UNIT value);
ORU_API String toString(SensorsData::TemperatureData::SENSOR_LOCATION value);
ORU_API String toString(VIDEO_SETTINGS value);
ORU_API String toString(ControlKind value);
ORU_API String toString(ControlInputs value);
ORU_API String toString(RECORDING_CONDITION value);
ORU_API String toString(REPAIR_RESULT value);
ORU_API String toString(Completeness value);

/// As "1920x1200".
ORU_API String toString(const Resolution& value);
ORU_API String toString(const Rect& value);
ORU_API String toString(const Transform& value);
ORU_API String toString(const InputType& value);
ORU_API String toString(const InitParametersOne& value);
ORU_API String toString(const FrameCounters& value);
ORU_API String toString(const StreamingParameters& value);
ORU_API String toString(const StreamingStatus& value);
ORU_API String toString(const StreamInputStatus& value);
ORU_API String toString(const RecordingParameters& value);
ORU_API String toString(const RecordingStatus& value);
ORU_API String toString(const DeviceProperties& value);
ORU_API String toString(const CameraParameters& value);
ORU_API String toString(const CameraModeDescription& value);
ORU_API String toString(const SensorsDescription& value);
ORU_API String toString(const CameraDescription& value);
ORU_API String toString(const SensorParameters& value);
ORU_API String toString(const SensorsData::BarometerData& value);
ORU_API String toString(const SensorsData::TemperatureData& value);
ORU_API String toString(const SensorsData::MagnetometerData& value);
ORU_API String toString(const SensorsData::ImuData& value);
ORU_API String toString(const SensorsData& value);
ORU_API String toString(const Control& value);
ORU_API String toString(const RecordingFacts& value);
ORU_API String toString(const RecordedSample& value);
ORU_API String toString(const RecordingCheck& value);
ORU_API String toString(const RecordingRepair& value);
ORU_API String toString(const VideoFileParameters& value);
ORU_API String toString(const Lens& value);
ORU_API String toString(const SensorMode& value);
ORU_API String toString(const CalibrationDifference& value);
ORU_API String toString(const LensDifference& value);

/// For whatever has a toString().
template <class Value,
          class = std::enable_if_t<std::is_convertible_v<decltype(toString(std::declval<const Value&>())), String>>>
std::ostream& operator<<(std::ostream& stream, const Value& value) {
    return stream << String(toString(value)).c_str();
}

}  // namespace oru
