#include "shared/input_options.hpp"

#include <fmt/core.h>

#include <limits>

#include "shared/option_helpers.hpp"

namespace koruone {
namespace {

constexpr uint64_t kLargestSide = 65535;

const Choices<oru::RESOLUTION> kResolutions{
    {"HD2160", oru::HD2160}, {"HD1800", oru::HD1800}, {"HD1242", oru::HD1242},
    {"HD1080", oru::HD1080}, {"HD1200", oru::HD1200}, {"HD720", oru::HD720},
    {"HD600", oru::HD600},   {"HD376", oru::HD376},   {"AUTO", oru::AUTO},
};

struct Endpoint {
    std::string host;
    uint16_t port = 30000;
};

std::optional<Endpoint> parseEndpoint(const std::string& text) {
    Endpoint endpoint;
    const std::size_t colon = text.find(':');
    endpoint.host = text.substr(0, colon);
    if (endpoint.host.empty()) {
        return std::nullopt;
    }
    if (colon != std::string::npos) {
        const auto port = parseNumber<uint16_t>(std::string_view(text).substr(colon + 1));
        if (!port || *port == 0) {
            return std::nullopt;
        }
        endpoint.port = *port;
    }
    return endpoint;
}

std::string checkEndpoint(std::string& text) {
    return parseEndpoint(text) ? "" : "'" + text + "' is not HOST or HOST:PORT with a port from 1 to 65535";
}

void addLiveOptions(CLI::App& command, InputOptions& options) {
    addChoiceOption(command, "--resolution", options.resolution, kResolutions,
                    "Image size of a live camera: HD2160, HD1800, HD1200 (default), HD1080 or HD600");
    addNumberOption(command, "--fps", options.fps, 1, 1000, "Frames per second of a live camera (default 30)");
    addNumberOption(command, "--flip", options.flip, 0, 2,
                    "Turn the image by 180 degrees: 0 no (default), 1 yes, 2 as the camera is mounted");
    command.add_flag("--hdr", options.hdr, "High dynamic range, where camera and size offer it");
}

}  // namespace

void addInputOptions(CLI::App& command, InputOptions& options, const TextCheck& checkAssignment) {
    auto* source = command.add_option_group("input", "Where the images come from; default: the first free camera");
    addNumberOption(*source, "--id", options.id, -1, 255, "Live camera by its id");
    addNumberOption(*source, "--serial", options.serial, uint32_t{1}, std::numeric_limits<uint32_t>::max(),
                    "Live camera by its serial number");
    source->add_option("--file", options.file, "Recorded file")->type_name("FILE");
    source->add_option("--stream", options.stream, "Network stream of another camera (port 30000)")
        ->check(CLI::Validator(checkEndpoint, ""))
        ->type_name("HOST[:PORT]");
    source->require_option(0, 1);
    command.add_flag("--realtime", options.realtime, "Play a recorded file at its recorded pace");
    addLiveOptions(command, options);
    command.add_option("--set", options.controls, "Write a control after opening; may be given several times")
        ->check(CLI::Validator(checkAssignment, ""))
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    command.add_option("--settings", options.settings, "Directory of the calibration files")->type_name("DIR");
}

oru::InitParametersOne initParameters(const InputOptions& options) {
    oru::InitParametersOne parameters;
    parameters.requested_resolution = options.resolution;
    parameters.requested_fps = options.fps;
    parameters.image_flip = options.flip;
    parameters.use_hdr = options.hdr;
    parameters.rlx_real_time = options.realtime;
    if (!options.settings.empty()) {
        parameters.settings_path = options.settings + "/";
    }
    if (options.id) {
        parameters.input.setFromCameraID(*options.id);
    } else if (options.serial) {
        parameters.input.setFromSerialNumber(*options.serial);
    } else if (!options.file.empty()) {
        parameters.input.setFromFile(options.file);
    } else if (const auto endpoint = parseEndpoint(options.stream)) {
        parameters.input.setFromStream(endpoint->host, endpoint->port);
    }
    return parameters;
}

oru::InputKind inputKind(const InputOptions& options) {
    return initParameters(options).input.kind();
}

std::string inputName(const InputOptions& options) {
    if (options.id && *options.id >= 0) {
        return fmt::format("camera {}", *options.id);
    }
    if (options.serial) {
        return fmt::format("the camera with serial {}", *options.serial);
    }
    if (!options.file.empty()) {
        return options.file;
    }
    if (!options.stream.empty()) {
        return "the stream of " + options.stream;
    }
    return "the first free camera";
}

std::optional<oru::Resolution> parseSize(const std::string& text) {
    const std::size_t cross = text.find_first_of("xX");
    if (cross == std::string::npos) {
        return std::nullopt;
    }
    const auto width = parseNumber<uint64_t>(std::string_view(text).substr(0, cross));
    const auto height = parseNumber<uint64_t>(std::string_view(text).substr(cross + 1));
    if (!width || !height || *width == 0 || *height == 0 || *width > kLargestSide || *height > kLargestSide) {
        return std::nullopt;
    }
    return oru::Resolution{*width, *height};
}

CLI::Option* addSizeOption(CLI::App& command, const std::string& name, oru::Resolution& size, const std::string& text) {
    const auto take = [&size, name](const std::string& value) {
        const auto parsed = parseSize(value);
        if (!parsed) {
            throw CLI::ValidationError(name, "'" + value + "' is not a size such as 960x600");
        }
        size = *parsed;
    };
    return command.add_option_function<std::string>(name, take, text)->type_name("WxH");
}

std::string resolutionName(oru::RESOLUTION resolution) {
    for (const auto& [name, value] : kResolutions) {
        if (value == resolution) {
            return name;
        }
    }
    return "RESOLUTION_LAST";
}

}  // namespace koruone
