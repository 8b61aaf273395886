#include <fmt/core.h>

#include <memory>

#include "koruone/camera/open_camera.hpp"
#include "koruone/commands/commands.hpp"
#include "koruone/runs/recording_summary.hpp"
#include "shared/input_options.hpp"
#include "shared/interrupt.hpp"
#include "shared/json_output.hpp"
#include "shared/option_helpers.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

struct InfoOptions {
    InputOptions input;
    std::string file;  ///< given without --file
    oru::Resolution size;
    bool quick = false;
    bool json = false;
};

const char* inputTypeName(oru::INPUT_TYPE type) {
    switch (type) {
        case oru::INPUT_TYPE_RLX:
            return "recorded file";
        case oru::INPUT_TYPE_STREAM:
            return "network stream";
        case oru::GMSL:
            return "live camera";
        default:
            return "none";
    }
}

const char* unitName(oru::SENSORS_UNIT unit) {
    switch (unit) {
        case oru::METER_PER_SECOND_SQUARED:
            return "m/s^2";
        case oru::DEGREE_PER_SECOND:
            return "deg/s";
        default:
            return "";
    }
}

const char* inputTypeCode(oru::INPUT_TYPE type) {
    switch (type) {
        case oru::INPUT_TYPE_RLX:
            return "INPUT_TYPE_RLX";
        case oru::INPUT_TYPE_STREAM:
            return "INPUT_TYPE_STREAM";
        case oru::GMSL:
            return "GMSL";
        default:
            return "INPUT_TYPE_NONE";
    }
}

Json sizeJson(const oru::Resolution& size) {
    return {{"width", size.width}, {"height", size.height}};
}

Json calibrationJson(const oru::CameraParameters& camera) {
    return {{"fx", camera.fx},
            {"fy", camera.fy},
            {"cx", camera.cx},
            {"cy", camera.cy},
            {"distortion", camera.distortion},
            {"fov_h", number(camera.fov_h)},
            {"fov_v", number(camera.fov_v)},
            {"fov_d", number(camera.fov_d)},
            {"image_size", sizeJson(camera.image_size)},
            {"focal_length_mm", camera.focal_length_mm}};
}

Json matrixJson(const oru::Matrix4f& matrix) {
    Json rows = Json::array();
    for (std::size_t row = 0; row < 4; ++row) {
        Json columns = Json::array();
        for (std::size_t column = 0; column < 4; ++column) {
            columns.push_back(number(matrix(row, column)));
        }
        rows.push_back(columns);
    }
    return rows;
}

Json sensorJson(const oru::SensorParameters& sensor) {
    return {{"is_available", sensor.is_available},
            {"sampling_rate", number(sensor.sampling_rate)},
            {"resolution", number(sensor.resolution)},
            {"range", {number(sensor.range[0]), number(sensor.range[1])}},
            {"noise_density", number(sensor.noise_density)},
            {"random_walk", number(sensor.random_walk)},
            {"unit", unitName(sensor.unit)}};
}

Json toJson(const oru::CameraDescription& info) {
    const oru::CameraModeDescription& mode = info.configuration;
    const oru::SensorsDescription& sensors = info.sensors;
    return {{"serial_number", info.serial_number},
            {"model", static_cast<int>(info.model)},
            {"input_type", inputTypeCode(info.input_type)},
            {"configuration",
             {{"calibration", calibrationJson(mode.calibration)},
              {"raw_calibration", calibrationJson(mode.raw_calibration)},
              {"firmware_version", mode.firmware_version},
              {"fps", mode.fps},
              {"resolution", sizeJson(mode.resolution)}}},
            {"sensors",
             {{"firmware_version", sensors.firmware_version},
              // The field under its own name, then both ways under names that say what they do.
              {"imu_to_camera", matrixJson(sensors.imu_to_camera)},
              {"imu_from_camera", matrixJson(sensors.imu_to_camera)},
              {"camera_from_imu", matrixJson(oru::Transform::inverse(sensors.imu_to_camera))},
              {"accelerometer", sensorJson(sensors.accelerometer)},
              {"gyroscope", sensorJson(sensors.gyroscope)},
              {"magnetometer", sensorJson(sensors.magnetometer)},
              {"barometer", sensorJson(sensors.barometer)}}}};
}

std::string calibrationText(const char* name, const oru::CameraParameters& camera) {
    return fmt::format(
        "{} at {}x{}: fx {:.2f}  fy {:.2f}  cx {:.2f}  cy {:.2f} px, focal length {:.3f} mm, field of "
        "view {:.1f} x {:.1f} deg, {:.1f} deg across\n",
        name, camera.image_size.width, camera.image_size.height, camera.fx, camera.fy, camera.cx, camera.cy,
        camera.focal_length_mm, camera.fov_h, camera.fov_v, camera.fov_d);
}

std::string sensorText(const char* name, const oru::SensorParameters& sensor) {
    if (!sensor.is_available) {
        return fmt::format("{:<15}  not present\n", name);
    }
    return fmt::format("{:<15}  {:.0f} Hz, {:.6g} to {:.6g} {}, step {:.4g}\n", name, sensor.sampling_rate,
                       sensor.range[0], sensor.range[1], unitName(sensor.unit), sensor.resolution);
}

/// Where one frame lies in another: its origin, and its rotation as a quaternion.
std::string poseText(const char* name, const oru::Transform& pose) {
    const oru::Translation place = pose.getTranslation();
    const oru::Orientation turn = pose.getOrientation();
    return fmt::format("{:<16} at {:.3f}  {:.3f}  {:.3f} mm, turned by x {:.6f}  y {:.6f}  z {:.6f}  w {:.6f}\n", name,
                       place[0], place[1], place[2], turn[0], turn[1], turn[2], turn[3]);
}

void printText(const oru::CameraDescription& info, const std::string& settings) {
    const oru::CameraModeDescription& mode = info.configuration;
    const oru::Transform& imuFromCamera = info.sensors.imu_to_camera;
    std::string text = fmt::format("serial number    {}\nmodel            {}\ninput            {}\n",
                                   info.serial_number, static_cast<int>(info.model), inputTypeName(info.input_type));
    text += fmt::format("image            {}x{} at {:.0f} frames/s\n", mode.resolution.width, mode.resolution.height,
                        mode.fps);
    text +=
        fmt::format("firmware         camera {}, sensors {}\n", mode.firmware_version, info.sensors.firmware_version);
    text += fmt::format("settings         {}\n", settings.empty() ? "none given" : settings);
    text += calibrationText("rectified", mode.calibration);
    text += calibrationText("unrectified", mode.raw_calibration);
    text += sensorText("accelerometer", info.sensors.accelerometer);
    text += sensorText("gyroscope", info.sensors.gyroscope);
    text += sensorText("magnetometer", info.sensors.magnetometer);
    text += sensorText("barometer", info.sensors.barometer);
    text += poseText("camera in IMU", imuFromCamera) +
            "                 (imu_to_camera: takes camera coordinates to the IMU's)\n";
    text += poseText("IMU in camera", oru::Transform::inverse(imuFromCamera));
    writeOutput(text);
}

ExitStatus describeCamera(const InfoOptions& options, const Json& recording) {
    oru::CameraOne camera;
    if (const ExitStatus opened = openCamera(camera, options.input); opened != EXIT_OK) {
        return opened;
    }
    const oru::CameraDescription info = camera.getCameraInformation(options.size);
    const oru::Resolution delivered = info.configuration.calibration.image_size;
    if (options.size.area() != 0 && delivered != options.size) {
        complain(oru::RESOLUTION_NOT_SUPPORTED,
                 fmt::format("{}x{} is larger than the image of {}x{}", options.size.width, options.size.height,
                             delivered.width, delivered.height),
                 Subject::CAMERA, "");
        return EXIT_FAILED;
    }
    if (options.json) {
        Json all = toJson(info);
        all.update(recording);
        writeJsonLine(all);
    } else {
        printText(info, camera.getInitParameters().settings_path.get());
    }
    return EXIT_OK;
}

ExitStatus runInfo(const InfoOptions& options) {
    Json result = Json::object();
    if (inputKind(options.input) == oru::KIND_RLX_FILE) {
        const InterruptGuard guard;
        RecordingSummary summary;
        const ExitStatus described = summariseRecording(options.input.file, !options.quick, summary);
        if (described == EXIT_FAILED || described == EXIT_INTERRUPTED) {
            return described;
        }
        if (!options.json) {
            writeOutput(recordingText(summary));
        }
        result["recording"] = recordingJson(summary);
        if (described == EXIT_DAMAGED && !summary.playable) {
            if (options.json) {
                writeJsonLine(result);
            }
            return described;
        }
        const ExitStatus camera = describeCamera(options, result);
        return camera == EXIT_OK ? described : camera;
    }
    return describeCamera(options, result);
}

/// A recording may be named without --file, then as the only input.
void takeFile(InfoOptions& options) {
    const bool another = options.input.id || options.input.serial || !options.input.file.empty() ||
                         !options.input.stream.empty() || options.input.resolution != oru::AUTO ||
                         options.input.fps != 0 || options.input.hdr || !options.input.controls.empty();
    if (!options.file.empty() && another) {
        throw CLI::ValidationError("FILE", "a recording goes with no other input and with no option of a live camera");
    }
    if (!options.file.empty()) {
        options.input.file = options.file;
    }
    if (options.quick && options.input.file.empty()) {
        throw CLI::ValidationError("--quick", "only a recorded file takes it");
    }
}

}  // namespace

void registerInfo(CLI::App& tool, ExitStatus& status) {
    auto options = std::make_shared<InfoOptions>();
    CLI::App* command = tool.add_subcommand("info", "Describe a camera: calibration, rates, sensors");
    addCameraOptions(*command, options->input);
    addSizeOption(*command, "--size", options->size, "Express the calibration for this size (default: the image's)");
    addPathOption(*command, "FILE", options->file, "A recorded file, as --file; its frames are described as well");
    command->add_flag("--quick", options->quick, "Do not read a whole recording to count samples and damage");
    command->add_flag("--json", options->json, "Print one object");
    command->callback([options, &status] {
        takeFile(*options);
        status = runInfo(*options);
    });
}

}  // namespace koruone
