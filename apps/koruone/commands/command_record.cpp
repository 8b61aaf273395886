#include <fmt/core.h>

#include <filesystem>
#include <limits>
#include <memory>

#include "koruone/camera/open_camera.hpp"
#include "koruone/commands/commands.hpp"
#include "koruone/output/compression_names.hpp"
#include "koruone/runs/record_run.hpp"

namespace koruone {
namespace {

constexpr uint64_t kMost = std::numeric_limits<uint64_t>::max();
constexpr uint32_t kMostKilobits = 1'000'000;

std::string checkRecordingName(std::string& name) {
    const std::string ending = std::filesystem::path(name).extension().string();
    if (ending != ".mp4" && ending != ".mov" && ending != ".avi") {
        return "";
    }
    return fmt::format(
        "'{}' would be a recording with a wrong name; record to .rlx2 and then run 'koruone convert "
        "FILE.rlx2 FILE.mp4'",
        name);
}

void checkBitrate(const RecordOptions& options) {
    const bool heeded = options.compression == oru::RLX_H264 || options.compression == oru::RLX_H265;
    if (options.bitrate > 0 && !heeded) {
        throw CLI::ValidationError("--bitrate", "only h264 and h265 have one");
    }
}

}  // namespace

void registerRecord(CLI::App& tool, ExitStatus& status) {
    auto options = std::make_shared<RecordOptions>();
    CLI::App* command = tool.add_subcommand("record", "Record an input into an RLX file");
    addCameraOptions(*command, options->input);
    addPathOption(*command, "FILE", options->file, "The recording, .rlx2 (or .rlx for version 1)")
        ->required()
        ->check(CLI::Validator(checkRecordingName, ""));
    auto* length = command->add_option_group("length", "How long; default: until the input ends or Ctrl-C");
    addSecondsOption(*length, "--seconds", options->seconds, "How long to record");
    addNumberOption(*length, "--frames", options->frames, uint64_t{1}, kMost, "Frames to grab");
    length->require_option(0, 1);
    addChoiceOption(*command, "--compression", options->compression, kCompressions,
                    "raw, h264 (default), h265, lossless or ffv1");
    addNumberOption(*command, "--bitrate", options->bitrate, uint32_t{1}, kMostKilobits,
                    "kbit/s for h264 and h265 (default: constant quality)");
    addNumberOption(*command, "--target-fps", options->target_fps, uint32_t{1}, uint32_t{1000},
                    "Keep only so many frames a second (default: all)");
    command->add_flag("--overwrite", options->overwrite, "Replace an existing file");
    command->add_flag("--json", options->json, "Print one object at the end");
    command->callback([options, &status] {
        checkBitrate(*options);
        status = RecordRun(*options).run();
    });
}

}  // namespace koruone
