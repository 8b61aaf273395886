#include <unistd.h>

#include <limits>
#include <memory>

#include "koruone/commands/commands.hpp"
#include "koruone/runs/grab_run.hpp"
#include "koruone/runs/play_run.hpp"
#include "shared/option_helpers.hpp"

namespace koruone {
namespace {

struct PlayCommand {
    GrabOptions measured;
    bool noDisplay = false;
};

ExitStatus runPlay(const PlayCommand& command) {
    GrabOptions measured = command.measured;
    const PlayOptions shown{measured.input, measured.from};
    if (command.noDisplay || measured.json || !measured.directory.empty()) {
        return GrabRun(measured).run();
    }
    if (const std::string explorer = findExplorer(); !explorer.empty()) {
        return openInExplorer(explorer, shown);
    }
    if (::isatty(STDOUT_FILENO) == 1) {
        return PlayRun(shown).run();
    }
    measured.notice = "standard output is no terminal: playing without pictures, as with --no-display";
    return GrabRun(measured).run();
}

}  // namespace

void registerPlay(CLI::App& tool, ExitStatus& status) {
    auto play = std::make_shared<PlayCommand>();
    GrabOptions* options = &play->measured;
    options->frames = std::numeric_limits<uint64_t>::max();
    CLI::App* command = tool.add_subcommand("play", "Show a recording, or play it and measure");
    addPathOption(*command, "FILE", options->input.file, "The recording")->required();
    command->add_flag("--no-display", play->noDisplay,
                      "Show nothing and measure; so do --json and --out (default: in koru-explorer where that is "
                      "installed, else as small pictures in the terminal; q ends)");
    command->add_flag("--realtime", options->input.realtime,
                      "With --no-display, at the recorded pace (default: as fast as possible)");
    addFollowOption(*command, options->input.follow);
    addNumberOption(*command, "--from", options->from, 0, std::numeric_limits<int>::max(),
                    "Number of the first frame (default 0)");
    CLI::Option* out = addPathOption(*command, "--out", options->directory,
                                     "Write frame_000000.png ..., frames.csv, contact_sheet.png here", "DIR");
    command->add_flag("--overwrite", options->overwrite, "Replace the pictures of another run in --out")->needs(out);
    addSettingsOption(*command, options->input.settings);
    command->add_flag("--json", options->json, "Print one object with what was measured");
    command->callback([play, &status] { status = runPlay(*play); });
}

}  // namespace koruone
