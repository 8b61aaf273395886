#include <limits>
#include <memory>

#include "koruone/commands/commands.hpp"
#include "koruone/runs/grab_run.hpp"
#include "shared/option_helpers.hpp"

namespace koruone {

void registerPlay(CLI::App& tool, ExitStatus& status) {
    auto options = std::make_shared<GrabOptions>();
    options->frames = std::numeric_limits<uint64_t>::max();
    CLI::App* command = tool.add_subcommand("play", "Play an RLX file to its end and measure");
    command->add_option("FILE", options->input.file, "The recording")->required();
    command->add_flag("--realtime", options->input.realtime, "At the recorded pace (default: as fast as possible)");
    addFollowOption(*command, options->input.follow);
    addNumberOption(*command, "--from", options->from, 0, std::numeric_limits<int>::max(),
                    "Number of the first frame (default 0)");
    command->add_option("--out", options->directory, "Write frame_000000.png ..., frames.csv, contact_sheet.png here")
        ->type_name("DIR");
    command->add_option("--settings", options->input.settings, "Directory of the calibration files")->type_name("DIR");
    command->add_flag("--json", options->json, "Print one object with what was measured");
    command->callback([options, &status] { status = GrabRun(*options).run(); });
}

}  // namespace koruone
