#include <fmt/core.h>

#include <memory>

#include "koruone/commands/commands.hpp"
#include "oru/RecordedFile.hpp"
#include "shared/Progress.hpp"
#include "shared/json_output.hpp"
#include "shared/option_helpers.hpp"
#include "shared/recording_advice.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

struct RepairOptions {
    std::string file;
    std::string output;
    bool json = false;
};

ExitStatus failRepair(const RepairOptions& options, const oru::RecordingRepair& report) {
    if (report.result == oru::REPAIR_NOT_WRITABLE && options.output.empty()) {
        complain("{} cannot be repaired in place; name a new file with --output, on a disk with room.", options.file);
    } else if (report.result == oru::REPAIR_NOT_WRITABLE) {
        complain("{} cannot be written; it must not exist yet, and the disk needs room.", options.output);
    } else {
        // What could be repaired was stopped or does not hold together, and stays as it was.
        complain("{} {}; {}.", options.file, oru::describe(report.condition),
                 oru::isRepairable(report.condition) ? "it was left as it is"
                                                     : recordingAdvice(report.condition, options.file));
    }
    return EXIT_FAILED;
}

ExitStatus runRepair(const RepairOptions& options) {
    Progress progress("repair");
    const auto show = [&](uint64_t done, uint64_t total) {
        progress.show(done, total);
        return true;
    };
    const oru::RecordingRepair report = oru::RecordedFile::repair(options.file, options.output, show);
    progress.clear();
    if (report.result != oru::REPAIR_DONE) {
        return failRepair(options, report);
    }
    const std::string& result = options.output.empty() ? options.file : options.output;
    const bool loss = report.frames_lost > 0 || report.frame_cut;
    if (options.json) {
        writeJsonLine({{"file", result},
                       {"condition_before", oru::describe(report.condition)},
                       {"frames_recovered", report.frames_recovered},
                       {"frames_lost", report.frames_lost},
                       {"unfinished_frame_cut", report.frame_cut},
                       {"bytes_cut", report.bytes_cut}});
        return loss ? EXIT_DAMAGED : EXIT_OK;
    }
    writeOutput(fmt::format("{}: {} frames recovered, {} lost{}\n", result, report.frames_recovered, report.frames_lost,
                            report.frame_cut ? ", an unfinished one cut off at the end" : ""));
    return loss ? EXIT_DAMAGED : EXIT_OK;
}

}  // namespace

void registerRepair(CLI::App& tool, ExitStatus& status) {
    auto options = std::make_shared<RepairOptions>();
    CLI::App* command = tool.add_subcommand("repair", "Make a damaged RLX file playable, in place");
    addPathOption(*command, "FILE", options->file, "The recording")->required();
    addPathOption(*command, "--output", options->output, "Leave FILE as it is and write the result here");
    command->add_flag("--json", options->json, "Print one object");
    command->footer("Exit status: 0 every frame was kept, 3 frames were lost, 1 failed.");
    command->callback([options, &status] { status = runRepair(*options); });
}

}  // namespace koruone
