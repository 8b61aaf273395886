#include "kit/text_line.hpp"

namespace oru {

using texts::Line;
using texts::shown;

String toString(const Resolution& value) {
    return shown(value.width) + "x" + shown(value.height);
}

String toString(const Transform& value) {
    return Line().with("orientation", value.getOrientation()).with("translation", value.getTranslation());
}

String toString(const InputType& value) {
    return Line().with("kind", value.kind()).with("first", value.first()).with("set", value.isSet());
}

String toString(const Rect& value) {
    return Line().with("x", value.x).with("y", value.y).with("width", value.width).with("height", value.height);
}

String toString(const InitParametersOne& value) {
    return Line()
        .with("requested_resolution", value.requested_resolution)
        .with("requested_fps", value.requested_fps)
        .with("image_flip", value.image_flip)
        .with("rlx_real_time", value.rlx_real_time)
        .with("length_unit", value.length_unit)
        .with("axis_convention", value.axis_convention)
        .with("verbosity", value.verbosity)
        .with("input", value.input)
        .with("settings_path", value.settings_path)
        .with("fast_fail_grab", value.fast_fail_grab)
        .with("use_hdr", value.use_hdr);
}

String toString(const FrameCounters& value) {
    return Line()
        .with("produced", value.produced)
        .with("delivered", value.delivered)
        .with("sensor_gap", value.sensor_gap)
        .with("overwritten", value.overwritten)
        .with("late", value.late)
        .with("queue_full", value.queue_full)
        .with("decode_failed", value.decode_failed)
        .with("damaged", value.damaged)
        .with("network", value.network)
        .with("sender_busy", value.sender_busy);
}

String toString(const StreamingParameters& value) {
    return Line()
        .with("codec", value.codec)
        .with("port", value.port)
        .with("bitrate", value.bitrate)
        .with("gop_size", value.gop_size)
        .with("adaptive_bitrate", value.adaptive_bitrate)
        .with("chunk_size", value.chunk_size)
        .with("target_fps", value.target_fps);
}

String toString(const StreamingStatus& value) {
    return Line()
        .with("receivers", value.receivers)
        .with("bitrate", value.bitrate)
        .with("frames_sent", value.frames_sent)
        .with("frames_held_back", value.frames_held_back)
        .with("packets_sent", value.packets_sent)
        .with("packets_repeated", value.packets_repeated)
        .with("bytes_sent", value.bytes_sent)
        .with("samples_lost", value.samples_lost)
        .with("backlog_ms", value.backlog_ms)
        .with("frames", value.frames);
}

String toString(const StreamInputStatus& value) {
    return Line()
        .with("connected", value.connected)
        .with("goodbye", value.goodbye)
        .with("last_frame_age_ms", value.last_frame_age_ms)
        .with("reconnections", value.reconnections)
        .with("samples_dropped", value.samples_dropped);
}

String toString(const RecordingParameters& value) {
    return Line()
        .with("video_filename", value.video_filename)
        .with("compression_mode", value.compression_mode)
        .with("bitrate", value.bitrate)
        .with("target_fps", value.target_fps)
        .with("overwrite", value.overwrite);
}

String toString(const RecordingStatus& value) {
    return Line()
        .with("recording", value.recording)
        .with("paused", value.paused)
        .with("last_result", value.last_result)
        .with("frames_written", value.frames_written)
        .with("frames_dropped", value.frames_dropped)
        .with("bytes_written", value.bytes_written)
        .with("seconds", value.seconds);
}

String toString(const DeviceProperties& value) {
    return Line()
        .with("availability", value.availability)
        .with("id", value.id)
        .with("path", value.path)
        .with("model", value.model)
        .with("serial_number", value.serial_number)
        .with("device_flags", value.device_flags)
        .with("text_1", value.text_1)
        .with("text_2", value.text_2)
        .with("text_3", value.text_3)
        .with("extra_id", value.extra_id);
}

String toString(const CameraParameters& value) {
    return Line()
        .with("fx", value.fx)
        .with("fy", value.fy)
        .with("cx", value.cx)
        .with("cy", value.cy)
        .with("distortion", value.distortion)
        .with("fov_v", value.fov_v)
        .with("fov_h", value.fov_h)
        .with("fov_d", value.fov_d)
        .with("image_size", value.image_size)
        .with("focal_length_mm", value.focal_length_mm);
}

String toString(const CameraModeDescription& value) {
    return Line()
        .with("calibration", value.calibration)
        .with("raw_calibration", value.raw_calibration)
        .with("firmware_version", value.firmware_version)
        .with("fps", value.fps)
        .with("resolution", value.resolution);
}

String toString(const SensorsDescription& value) {
    return Line()
        .with("firmware_version", value.firmware_version)
        .with("imu_to_camera", value.imu_to_camera)
        .with("second_transform", value.second_transform)
        .with("accelerometer", value.accelerometer)
        .with("gyroscope", value.gyroscope)
        .with("magnetometer", value.magnetometer)
        .with("barometer", value.barometer);
}

String toString(const CameraDescription& value) {
    return Line()
        .with("serial_number", value.serial_number)
        .with("model", value.model)
        .with("input_type", value.input_type)
        .with("configuration", value.configuration)
        .with("sensors", value.sensors);
}

}  // namespace oru
