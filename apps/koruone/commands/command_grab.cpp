#include <limits>
#include <memory>

#include "koruone/camera/open_camera.hpp"
#include "koruone/commands/commands.hpp"
#include "koruone/output/view_names.hpp"
#include "koruone/runs/grab_run.hpp"
#include "shared/option_helpers.hpp"

namespace koruone {
namespace {

const Choices<oru::MEM> kMemories{{"cpu", oru::CPU}, {"gpu", oru::GPU}};
constexpr uint64_t kMostFrames = std::numeric_limits<uint64_t>::max();

}  // namespace

void registerGrab(CLI::App& tool, ExitStatus& status) {
    auto options = std::make_shared<GrabOptions>();
    CLI::App* command = tool.add_subcommand("grab", "Take frames, measure, and write pictures");
    addCameraOptions(*command, options->input);
    addNumberOption(*command, "--frames", options->frames, uint64_t{1}, kMostFrames,
                    "How many frames to take (default 90)");
    addNumberOption(*command, "--every", options->every, uint64_t{1}, kMostFrames,
                    "Retrieve the frames 0, N, 2N, ... (default 1)");
    addChoiceOption(*command, "--view", options->view, kViews,
                    "rectified (default), rectified_gray, unrectified or unrectified_gray");
    addSizeOption(*command, "--size", options->size, "Size of the retrieved picture (default: the camera's)");
    addChoiceOption(*command, "--memory", options->memory, kMemories,
                    "Where the picture is delivered: cpu (default) or gpu");
    CLI::Option* out = addPathOption(*command, "--out", options->directory,
                                     "Write frame_000000.png ..., frames.csv, contact_sheet.png here", "DIR");
    command->add_flag("--overwrite", options->overwrite, "Replace the pictures of another run in --out")->needs(out);
    command->add_flag("--json", options->json, "Print one object with what was measured");
    command->callback([options, &status] { status = GrabRun(*options).run(); });
}

}  // namespace koruone
