#include <algorithm>
#include <array>
#include <string>

#include "oru/text.hpp"

namespace oru {
namespace {

template <class Enumeration>
struct Named {
    Enumeration value;
    const char* name;
};

/// The name in the list, else "TYPE(number)".
template <class Enumeration, std::size_t N>
String nameIn(const std::array<Named<Enumeration>, N>& list, Enumeration value, const char* type) {
    const auto found =
        std::find_if(list.begin(), list.end(), [value](const auto& named) { return named.value == value; });
    return found != list.end() ? String(found->name)
                               : String(std::string(type) + "(" + std::to_string(static_cast<int>(value)) + ")");
}

constexpr auto kInputTypeNames = std::to_array<Named<INPUT_TYPE>>({
    {INPUT_TYPE_NONE, "INPUT_TYPE_NONE"},
    {INPUT_TYPE_RLX, "INPUT_TYPE_RLX"},
    {INPUT_TYPE_STREAM, "INPUT_TYPE_STREAM"},
    {GMSL, "GMSL"},
    {INPUT_TYPE_PENDING, "INPUT_TYPE_PENDING"},
});
constexpr auto kModelNames = std::to_array<Named<MODEL>>({
    {MODEL_MONO_3UM, "MODEL_MONO_3UM"},
    {MODEL_MONO_2UM, "MODEL_MONO_2UM"},
    {MODEL_UNKNOWN, "MODEL_UNKNOWN"},
});
constexpr auto kUnitNames = std::to_array<Named<UNIT>>({
    {UNIT_MILLIMETER, "UNIT_MILLIMETER"},
    {UNIT_CENTIMETER, "UNIT_CENTIMETER"},
    {UNIT_METER, "UNIT_METER"},
    {UNIT_INCH, "UNIT_INCH"},
    {UNIT_FOOT, "UNIT_FOOT"},
});
constexpr auto kAxisConventionNames = std::to_array<Named<AXIS_CONVENTION>>({
    {AXIS_CONVENTION_0, "AXIS_CONVENTION_0"},
    {AXIS_CONVENTION_1, "AXIS_CONVENTION_1"},
    {AXIS_CONVENTION_2, "AXIS_CONVENTION_2"},
    {AXIS_CONVENTION_3, "AXIS_CONVENTION_3"},
    {AXIS_CONVENTION_4, "AXIS_CONVENTION_4"},
    {AXIS_CONVENTION_5, "AXIS_CONVENTION_5"},
});
constexpr auto kCalibrationChoiceNames = std::to_array<Named<CALIBRATION_CHOICE>>({
    {CALIBRATION_DEFAULT, "CALIBRATION_DEFAULT"},
    {CALIBRATION_OWN, "CALIBRATION_OWN"},
    {CALIBRATION_LOCAL, "CALIBRATION_LOCAL"},
});
constexpr auto kInputKindNames = std::to_array<Named<InputKind>>({
    {KIND_RLX_FILE, "KIND_RLX_FILE"},
    {KIND_STREAM, "KIND_STREAM"},
    {KIND_GMSL_ID, "KIND_GMSL_ID"},
    {KIND_GMSL_SERIAL, "KIND_GMSL_SERIAL"},
});
constexpr auto kBusTypeNames = std::to_array<Named<BUS_TYPE>>({
    {BUS_TYPE_2, "BUS_TYPE_2"},
});
constexpr auto kCameraTypeNames = std::to_array<Named<CAMERA_TYPE>>({
    {CAMERA_TYPE_0, "CAMERA_TYPE_0"},
});
constexpr auto kStreamingCodecNames = std::to_array<Named<STREAMING_CODEC>>({
    {PLAIN_CODEC, "PLAIN_CODEC"},
    {DENSE_CODEC, "DENSE_CODEC"},
});
constexpr auto kRlxCompressionModeNames = std::to_array<Named<RLX_COMPRESSION_MODE>>({
    {RLX_RAW, "RLX_RAW"},
    {RLX_H264, "RLX_H264"},
    {RLX_H265, "RLX_H265"},
    {RLX_LOSSLESS, "RLX_LOSSLESS"},
    {RLX_FFV1, "RLX_FFV1"},
    {RLX_MODE_5, "RLX_MODE_5"},
    {RLX_MODE_8, "RLX_MODE_8"},
    {RLX_MODE_10, "RLX_MODE_10"},
});
constexpr auto kViewNames = std::to_array<Named<VIEW>>({
    {RECTIFIED, "RECTIFIED"},
    {RECTIFIED_GRAY, "RECTIFIED_GRAY"},
    {UNRECTIFIED, "UNRECTIFIED"},
    {UNRECTIFIED_GRAY, "UNRECTIFIED_GRAY"},
});
constexpr auto kMemNames = std::to_array<Named<MEM>>({
    {CPU, "CPU"},
    {GPU, "GPU"},
    {CPU_AND_GPU, "CPU_AND_GPU"},
});
constexpr auto kMatTypeNames = std::to_array<Named<MAT_TYPE>>({
    {U8_C1, "U8_C1"},
    {U8_C2, "U8_C2"},
    {U8_C4, "U8_C4"},
});
constexpr auto kResolutionNames = std::to_array<Named<RESOLUTION>>({
    {HD2160, "HD2160"},
    {HD1800, "HD1800"},
    {HD1242, "HD1242"},
    {HD1080, "HD1080"},
    {HD1200, "HD1200"},
    {HD720, "HD720"},
    {HD600, "HD600"},
    {HD376, "HD376"},
    {AUTO, "AUTO"},
    {RESOLUTION_LAST, "RESOLUTION_LAST"},
});
constexpr auto kTimeReferenceNames = std::to_array<Named<TIME_REFERENCE>>({
    {IMAGE, "IMAGE"},
    {CURRENT, "CURRENT"},
});
constexpr auto kSensorTypeNames = std::to_array<Named<SENSOR_TYPE>>({
    {ACCELEROMETER, "ACCELEROMETER"},
    {GYROSCOPE, "GYROSCOPE"},
    {SENSOR_TYPE_NONE, "SENSOR_TYPE_NONE"},
});
constexpr auto kSensorsUnitNames = std::to_array<Named<SENSORS_UNIT>>({
    {METER_PER_SECOND_SQUARED, "METER_PER_SECOND_SQUARED"},
    {DEGREE_PER_SECOND, "DEGREE_PER_SECOND"},
    {SENSORS_UNIT_NONE, "SENSORS_UNIT_NONE"},
});
constexpr auto kSensorLocationNames = std::to_array<Named<SensorsData::TemperatureData::SENSOR_LOCATION>>({
    {SensorsData::TemperatureData::SENSOR_LOCATION::SENSOR_LOCATION_IMU, "SENSOR_LOCATION_IMU"},
    {SensorsData::TemperatureData::SENSOR_LOCATION::SENSOR_LOCATION_BAROMETER, "SENSOR_LOCATION_BAROMETER"},
    {SensorsData::TemperatureData::SENSOR_LOCATION::SENSOR_LOCATION_2, "SENSOR_LOCATION_2"},
    {SensorsData::TemperatureData::SENSOR_LOCATION::SENSOR_LOCATION_3, "SENSOR_LOCATION_3"},
});
constexpr auto kControlKindNames = std::to_array<Named<ControlKind>>({
    {ControlKind::VALUE, "VALUE"},
    {ControlKind::WRITE_ONLY, "WRITE_ONLY"},
    {ControlKind::REGION, "REGION"},
    {ControlKind::RANGE, "RANGE"},
});
constexpr auto kControlInputsNames = std::to_array<Named<ControlInputs>>({
    {ControlInputs::NONE, "NONE"},
    {ControlInputs::LIVE, "LIVE"},
    {ControlInputs::LIVE_AND_STREAM, "LIVE_AND_STREAM"},
});
constexpr auto kRecordingConditionNames = std::to_array<Named<RECORDING_CONDITION>>({
    {RECORDING_CONDITION::INTACT, "INTACT"},
    {RECORDING_CONDITION::MISSING, "MISSING"},
    {RECORDING_CONDITION::NOT_A_FILE, "NOT_A_FILE"},
    {RECORDING_CONDITION::UNREADABLE, "UNREADABLE"},
    {RECORDING_CONDITION::EMPTY, "EMPTY"},
    {RECORDING_CONDITION::NOT_OURS, "NOT_OURS"},
    {RECORDING_CONDITION::TOO_NEW, "TOO_NEW"},
    {RECORDING_CONDITION::BEING_RECORDED, "BEING_RECORDED"},
    {RECORDING_CONDITION::NO_WHOLE_FRAME, "NO_WHOLE_FRAME"},
    {RECORDING_CONDITION::UNFINISHED, "UNFINISHED"},
    {RECORDING_CONDITION::CUT_OFF, "CUT_OFF"},
    {RECORDING_CONDITION::DAMAGED, "DAMAGED"},
});
constexpr auto kRepairResultNames = std::to_array<Named<REPAIR_RESULT>>({
    {REPAIR_DONE, "REPAIR_DONE"},
    {REPAIR_UNREADABLE, "REPAIR_UNREADABLE"},
    {REPAIR_NOT_WRITABLE, "REPAIR_NOT_WRITABLE"},
    {REPAIR_UNKNOWN_FORMAT, "REPAIR_UNKNOWN_FORMAT"},
});
constexpr auto kCompletenessNames = std::to_array<Named<Completeness>>({
    {Completeness::KNOWN, "KNOWN"},
    {Completeness::UNKNOWN, "UNKNOWN"},
});

}  // namespace

String toString(INPUT_TYPE value) {
    return nameIn(kInputTypeNames, value, "INPUT_TYPE");
}

String toString(MODEL value) {
    return nameIn(kModelNames, value, "MODEL");
}

String toString(UNIT value) {
    return nameIn(kUnitNames, value, "UNIT");
}

String toString(AXIS_CONVENTION value) {
    return nameIn(kAxisConventionNames, value, "AXIS_CONVENTION");
}

String toString(CALIBRATION_CHOICE value) {
    return nameIn(kCalibrationChoiceNames, value, "CALIBRATION_CHOICE");
}

String toString(InputKind value) {
    return nameIn(kInputKindNames, value, "InputKind");
}

String toString(BUS_TYPE value) {
    return nameIn(kBusTypeNames, value, "BUS_TYPE");
}

String toString(CAMERA_TYPE value) {
    return nameIn(kCameraTypeNames, value, "CAMERA_TYPE");
}

String toString(STREAMING_CODEC value) {
    return nameIn(kStreamingCodecNames, value, "STREAMING_CODEC");
}

String toString(RLX_COMPRESSION_MODE value) {
    return nameIn(kRlxCompressionModeNames, value, "RLX_COMPRESSION_MODE");
}

String toString(VIEW value) {
    return nameIn(kViewNames, value, "VIEW");
}

String toString(MEM value) {
    return nameIn(kMemNames, value, "MEM");
}

String toString(MAT_TYPE value) {
    return nameIn(kMatTypeNames, value, "MAT_TYPE");
}

String toString(RESOLUTION value) {
    return nameIn(kResolutionNames, value, "RESOLUTION");
}

String toString(TIME_REFERENCE value) {
    return nameIn(kTimeReferenceNames, value, "TIME_REFERENCE");
}

String toString(SENSOR_TYPE value) {
    return nameIn(kSensorTypeNames, value, "SENSOR_TYPE");
}

String toString(SENSORS_UNIT value) {
    return nameIn(kSensorsUnitNames, value, "SENSORS_UNIT");
}

String toString(SensorsData::TemperatureData::SENSOR_LOCATION value) {
    return nameIn(kSensorLocationNames, value, "SENSOR_LOCATION");
}

String toString(ControlKind value) {
    return nameIn(kControlKindNames, value, "ControlKind");
}

String toString(ControlInputs value) {
    return nameIn(kControlInputsNames, value, "ControlInputs");
}

String toString(RECORDING_CONDITION value) {
    return nameIn(kRecordingConditionNames, value, "RECORDING_CONDITION");
}

String toString(REPAIR_RESULT value) {
    return nameIn(kRepairResultNames, value, "REPAIR_RESULT");
}

String toString(Completeness value) {
    return nameIn(kCompletenessNames, value, "Completeness");
}

String toString(VIDEO_SETTINGS value) {
    const Control* control = findControl(value);
    return control != nullptr ? String(std::string(control->name))
                              : String("VIDEO_SETTINGS(" + std::to_string(static_cast<int>(value)) + ")");
}

}  // namespace oru
