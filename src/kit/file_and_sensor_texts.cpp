#include "kit/text_line.hpp"

namespace oru {

using texts::Line;

String toString(const SensorParameters& value) {
    return Line()
        .with("type", value.type)
        .with("resolution", value.resolution)
        .with("sampling_rate", value.sampling_rate)
        .with("range", value.range)
        .with("noise_density", value.noise_density)
        .with("random_walk", value.random_walk)
        .with("unit", value.unit)
        .with("is_available", value.is_available);
}

String toString(const SensorsData::BarometerData& value) {
    return Line()
        .with("is_available", value.is_available)
        .with("timestamp", value.timestamp)
        .with("pressure", value.pressure)
        .with("altitude_change", value.altitude_change);
}

String toString(const SensorsData::MagnetometerData& value) {
    return Line()
        .with("is_available", value.is_available)
        .with("timestamp", value.timestamp)
        .with("field_1", value.field_1)
        .with("field_2", value.field_2)
        .with("heading", value.heading)
        .with("heading_status", value.heading_status)
        .with("heading_error", value.heading_error);
}

String toString(const SensorsData::ImuData& value) {
    return Line()
        .with("is_available", value.is_available)
        .with("timestamp", value.timestamp)
        .with("pose", value.pose)
        .with("pose_covariance", value.pose_covariance)
        .with("vector_1", value.vector_1)
        .with("vector_2", value.vector_2)
        .with("vector_3", value.vector_3)
        .with("vector_4", value.vector_4)
        .with("covariance_1", value.covariance_1)
        .with("covariance_2", value.covariance_2)
        .with("measured_rate", value.measured_rate);
}

String toString(const Control& value) {
    return Line()
        .with("number", value.number)
        .with("name", value.name)
        .with("kind", value.kind)
        .with("read_from", value.read_from)
        .with("written_to", value.written_to);
}

String toString(const RecordingFacts& value) {
    return Line()
        .with("version", value.version)
        .with("serial_number", value.serial_number)
        .with("model", value.model)
        .with("camera_firmware", value.camera_firmware)
        .with("sensors_firmware", value.sensors_firmware)
        .with("size", value.size)
        .with("fps", value.fps)
        .with("flipped", value.flipped)
        .with("decompression_platform", value.decompression_platform)
        .with("compression_mode", value.compression_mode)
        .with("bitrate", value.bitrate)
        .with("sharpness", value.sharpness)
        .with("has_imu", value.has_imu)
        .with("has_imu_to_camera", value.has_imu_to_camera)
        .with("imu_to_camera", value.imu_to_camera)
        .with("imu_calibration", value.imu_calibration)
        .with("calibration_text", value.calibration_text);
}

String toString(const RecordedSample& value) {
    return Line()
        .with("timestamp", value.timestamp)
        .with("synced_with_image", value.synced_with_image)
        .with("angular_velocity", value.angular_velocity)
        .with("linear_acceleration", value.linear_acceleration)
        .with("orientation", value.orientation)
        .with("temperature", value.temperature);
}

String toString(const RecordingCheck& value) {
    return Line()
        .with("condition", value.condition)
        .with("frames", value.frames)
        .with("damaged", value.damaged)
        .with("imu_packets", value.imu_packets);
}

String toString(const RecordingRepair& value) {
    return Line()
        .with("result", value.result)
        .with("condition", value.condition)
        .with("frames_recovered", value.frames_recovered)
        .with("frames_lost", value.frames_lost)
        .with("frame_cut", value.frame_cut)
        .with("bytes_cut", value.bytes_cut);
}

String toString(const VideoFileParameters& value) {
    return Line()
        .with("size", value.size)
        .with("fps", value.fps)
        .with("compression_mode", value.compression_mode)
        .with("bitrate", value.bitrate);
}

String toString(const Lens& value) {
    return Line()
        .with("fx", value.fx)
        .with("fy", value.fy)
        .with("cx", value.cx)
        .with("cy", value.cy)
        .with("distortion", value.distortion);
}

String toString(const SensorMode& value) {
    return Line()
        .with("width", value.width)
        .with("height", value.height)
        .with("max_fps", value.max_fps)
        .with("binning", value.binning)
        .with("section", value.section);
}

String toString(const CalibrationDifference& value) {
    return Line().with("key", value.key).with("file", value.file).with("factory", value.factory);
}

String toString(const LensDifference& value) {
    return Line()
        .with("mean_pixels", value.mean_pixels)
        .with("max_pixels", value.max_pixels)
        .with("rotation_degrees", value.rotation_degrees)
        .with("points", value.points);
}

String toString(const SensorsData::TemperatureData& value) {
    Line line;
    for (const auto& [location, celsius] : value.temperature_map) {
        (void)line.with(toString(location).c_str(), celsius);
    }
    return line;
}

String toString(const SensorsData& value) {
    return Line()
        .with("barometer", value.barometer)
        .with("temperature", value.temperature)
        .with("magnetometer", value.magnetometer)
        .with("imu", value.imu)
        .with("sample_state", value.sample_state)
        .with("synced_with_image", value.synced_with_image);
}

}  // namespace oru
