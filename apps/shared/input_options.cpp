#include "shared/input_options.hpp"

#include <fmt/core.h>
#include <cstdlib>

#include <limits>

#include "shared/option_helpers.hpp"

namespace koruone {
namespace {

constexpr uint64_t kLargestSide = 65535;
constexpr double kMostPatience = 1e9;

const Choices<oru::RESOLUTION> kResolutions{
    {"HD2160", oru::HD2160}, {"HD1800", oru::HD1800}, {"HD1242", oru::HD1242},
    {"HD1080", oru::HD1080}, {"HD1200", oru::HD1200}, {"HD720", oru::HD720},
    {"HD600", oru::HD600},   {"HD376", oru::HD376},   {"AUTO", oru::AUTO},
};

/// HOST alone too, beside what InputType::fromText takes for a stream.
oru::ERROR_CODE readStream(const std::string& text, oru::InputType& input, oru::String& refusal) {
    if (!text.empty() && text.find_first_of(":/[") == std::string::npos) {
        input.setFromStream(text);
        return oru::SUCCESS;
    }
    oru::InputType read;
    const oru::ERROR_CODE code = oru::InputType::fromText(text, read, refusal);
    if (code == oru::SUCCESS && read.kind() != oru::KIND_STREAM) {
        refusal = "'" + text + "' is not HOST, HOST:PORT or [IPV6]:PORT";
        return oru::INVALID_PARAMETER;
    }
    input = code == oru::SUCCESS ? read : input;
    return code;
}

std::string checkStream(std::string& text) {
    oru::InputType input;
    oru::String refusal;
    return readStream(text, input, refusal) == oru::SUCCESS ? "" : refusal.get();
}

/// The input that one text names, as the option of its own kind would have given it.
void takeInput(InputOptions& options, const std::string& text) {
    oru::InputType input;
    oru::String refusal;
    if (oru::InputType::fromText(text, input, refusal) != oru::SUCCESS) {
        throw CLI::ValidationError("--input", refusal.get());
    }
    if (input.kind() == oru::KIND_GMSL_SERIAL) {
        options.serial = parseNumber<uint32_t>(input.first().get());
    } else {
        (input.kind() == oru::KIND_STREAM ? options.stream : options.file) = input.first().get();
    }
}

void addLiveOptions(CLI::App& command, InputOptions& options) {
    addChoiceOption(command, "--resolution", options.resolution, kResolutions,
                    "Image size of a live camera: HD2160, HD1800, HD1200 (default), HD1080 or HD600");
    addNumberOption(command, "--fps", options.fps, 1, 1000, "Frames per second of a live camera (default 30)");
    addNumberOption(command, "--flip", options.flip, 0, 2,
                    "Turn the image by 180 degrees: 0 no (default), 1 yes, 2 as the camera is mounted");
    command.add_flag("--hdr", options.hdr, "High dynamic range, where camera and size offer it");
}

/// Refuses what the chosen input would not heed.
void checkInputOptions(const CLI::App& command, const InputOptions& options) {
    const oru::InputKind kind = inputKind(options);
    const bool recorded = kind == oru::KIND_RLX_FILE;
    for (const char* name : {"--resolution", "--fps", "--hdr"}) {
        if ((recorded || kind == oru::KIND_STREAM) && command.count(name) > 0) {
            throw CLI::ValidationError(name, "only a live camera takes it; a recording and a stream keep their own");
        }
    }
    if (options.realtime && !recorded) {
        throw CLI::ValidationError("--realtime", "only a recorded file (--file) takes it");
    }
    if (options.follow && !recorded) {
        throw CLI::ValidationError("--follow", "only a recorded file takes it");
    }
    if (recorded && !options.controls.empty()) {
        throw CLI::ValidationError("--set", "a recorded file has no controls");
    }
}

}  // namespace

void addInputOptions(CLI::App& command, InputOptions& options, const TextCheck& checkAssignment) {
    auto* source = command.add_option_group("input", "Where the images come from; default: the first free camera");
    addNumberOption(*source, "--id", options.id, 0, 255, "Live camera by its id");
    addNumberOption(*source, "--serial", options.serial, uint32_t{1}, std::numeric_limits<uint32_t>::max(),
                    "Live camera by its serial number");
    addPathOption(*source, "--file", options.file, "Recorded file");
    source->add_option("--stream", options.stream, "Network stream of another camera (port 30000)")
        ->check(CLI::Validator(checkStream, ""))
        ->type_name("HOST[:PORT]");
    source
        ->add_option_function<std::string>(
            "--input", [&options](const std::string& text) { takeInput(options, text); },
            "Any of them by its form: FILE, HOST:PORT, [IPV6]:PORT or serial:N")
        ->type_name("INPUT");
    source->require_option(0, 1);
    const auto takePatience = [&options](const std::string& text) {
        const auto seconds = parseNumber<double>(text);
        if (!seconds || !(*seconds >= 0.0) || *seconds > kMostPatience) {
            throw CLI::ValidationError("--patience", "'" + text + "' is not a number of seconds");
        }
        options.patience = *seconds;
    };
    command
        .add_option_function<std::string>("--patience", takePatience,
                                          "How long to wait for a stream that pauses or is lost (default 10)")
        ->type_name("SECONDS");
    command.add_flag("--realtime", options.realtime, "Play a recorded file at its recorded pace");
    addFollowOption(command, options.follow);
    addLiveOptions(command, options);
    command.add_option("--set", options.controls, "Write a control after opening; may be given several times")
        ->check(CLI::Validator(checkAssignment, ""))
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    addSettingsOption(command, options.settings);
    command.parse_complete_callback([&command, &options] { checkInputOptions(command, options); });
}

void addSettingsOption(CLI::App& command, std::string& directory) {
    const auto take = [&directory](const std::string& text) {
        if (text.empty()) {
            throw CLI::ValidationError("--settings", "an empty name is no DIR");
        }
        const char* home = std::getenv("HOME");
        const bool ofHome = text == "~" || text.starts_with("~/");
        directory = ofHome && home != nullptr ? home + text.substr(1) : text;
    };
    command.add_option_function<std::string>("--settings", take, "Directory of the calibration files")
        ->type_name("DIR");
}

void addFollowOption(CLI::App& command, bool& follow) {
    command.add_flag("--follow", follow, "Go on while the recorded file is still being written or copied");
}

oru::InitParametersOne initParameters(const InputOptions& options) {
    oru::InitParametersOne parameters;
    parameters.requested_resolution = options.resolution;
    parameters.requested_fps = options.fps;
    parameters.image_flip = options.flip;
    parameters.use_hdr = options.hdr;
    parameters.rlx_real_time = options.realtime;
    parameters.rlx_follow = options.follow;
    if (!options.settings.empty()) {
        parameters.settings_path = options.settings + "/";
    }
    if (options.id) {
        parameters.input.setFromCameraID(*options.id);
    } else if (options.serial) {
        parameters.input.setFromSerialNumber(*options.serial);
    } else if (!options.file.empty()) {
        parameters.input.setFromFile(options.file);
    } else if (!options.stream.empty()) {
        oru::String refusal;
        (void)readStream(options.stream, parameters.input, refusal);
    }
    return parameters;
}

oru::InputKind inputKind(const InputOptions& options) {
    return initParameters(options).input.kind();
}

std::chrono::nanoseconds patienceOf(const InputOptions& options) {
    const std::chrono::duration<double> seconds(options.stream.empty() ? 0.0 : options.patience);
    return std::chrono::duration_cast<std::chrono::nanoseconds>(seconds);
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
