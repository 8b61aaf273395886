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

}  // namespace

void registerRecord(CLI::App& tool, ExitStatus& status) {
    auto options = std::make_shared<RecordOptions>();
    CLI::App* command = tool.add_subcommand("record", "Record an input into an RLX file");
    addCameraOptions(*command, options->input);
    command->add_option("FILE", options->file, "The recording, .rlx2 (or .rlx for version 1)")->required();
    auto* length = command->add_option_group("length", "How long; default: until the input ends or Ctrl-C");
    addNumberOption(*length, "--seconds", options->seconds, uint64_t{1}, kMost, "Seconds to record");
    addNumberOption(*length, "--frames", options->frames, uint64_t{1}, kMost, "Frames to grab");
    length->require_option(0, 1);
    addChoiceOption(*command, "--compression", options->compression, kCompressions,
                    "raw, h264 (default), h265, lossless or ffv1");
    addNumberOption(*command, "--bitrate", options->bitrate, uint32_t{1}, kMostKilobits,
                    "kbit/s for h264 and h265 (default: constant quality)");
    addNumberOption(*command, "--target-fps", options->target_fps, uint32_t{1}, uint32_t{1000},
                    "Keep only so many frames a second (default: all)");
    command->add_flag("--overwrite", options->overwrite, "Replace an existing file");
    command->callback([options, &status] { status = RecordRun(*options).run(); });
}

}  // namespace koruone
