#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "oru/types.hpp"

namespace koruone {

/// The options by which every command that opens a camera chooses its input.
struct InputOptions {
    std::optional<int> id;
    std::optional<uint32_t> serial;
    std::string file;        ///< path of a recording
    std::string stream;      ///< HOST[:PORT]
    double patience = 10.0;  ///< seconds without a frame after which a stream counts as lost
    oru::RESOLUTION resolution = oru::AUTO;
    int fps = 0;
    int flip = 0;
    bool hdr = false;
    bool realtime = false;              ///< a recorded file at its recorded pace
    bool follow = false;                ///< go on while a recorded file grows
    std::string settings;               ///< directory, empty for the default one
    std::vector<std::string> controls;  ///< NAME=VALUE, checked, in the order to be written
};

/// Says what is wrong with a text, nothing when it is right.
using TextCheck = std::function<std::string(std::string&)>;

/// Adds --id, --serial, --file, --stream, --input (one of them at most), --patience, --realtime, --follow,
/// --resolution,
/// --fps, --flip,
/// --hdr, --set (whose texts `checkAssignment` judges) and --settings. `options` must outlive the parsing.
void addInputOptions(CLI::App& command, InputOptions& options, const TextCheck& checkAssignment);

/// Adds --follow, for recorded files.
void addFollowOption(CLI::App& command, bool& follow);

/// The parameters of open() for these options.
oru::InitParametersOne initParameters(const InputOptions& options);

/// Live camera, recorded file or stream.
oru::InputKind inputKind(const InputOptions& options);

/// How long no frame may come before the input counts as lost: of a stream, which comes back by itself, `patience`; of
/// any other none.
std::chrono::nanoseconds patienceOf(const InputOptions& options);

/// "camera 0", "the first free camera", "the camera with serial 30010001", "rec.rlx2", "the stream of host:30000".
std::string inputName(const InputOptions& options);

/// Text of the form WxH; both at least 1. Empty optional for anything else.
std::optional<oru::Resolution> parseSize(const std::string& text);

/// `--settings DIR`, where a "~" at the beginning is the home, also where no shell has expanded it.
void addSettingsOption(CLI::App& command, std::string& directory);

/// Adds an option that takes WxH.
CLI::Option* addSizeOption(CLI::App& command, const std::string& name, oru::Resolution& size, const std::string& text);

/// "HD1200" for the enumerator.
std::string resolutionName(oru::RESOLUTION resolution);

}  // namespace koruone
