#include <fmt/core.h>

#include <memory>

#include "koruone/commands/commands.hpp"
#include "oru/RecordedFile.hpp"
#include "shared/Progress.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

struct RepairOptions {
    std::string file;
    std::string output;
};

ExitStatus failRepair(const RepairOptions& options, const oru::RecordingRepair& report) {
    if (report.result == oru::REPAIR_NOT_WRITABLE && options.output.empty()) {
        complain("{} cannot be repaired in place; name a new file with --output, on a disk with room.", options.file);
    } else if (report.result == oru::REPAIR_NOT_WRITABLE) {
        complain("{} cannot be written; it must not exist yet, and the disk needs room.", options.output);
    } else {
        complain("{} {}; it was left as it is.", options.file, oru::describe(report.condition));
    }
    return EXIT_FAILED;
}

ExitStatus runRepair(const RepairOptions& options) {
    Progress progress("repair");
    const auto show = [&](uint64_t done, uint64_t total) {
        progress.show(
            fmt::format("{:.0f} %", total == 0 ? 0.0 : 100.0 * static_cast<double>(done) / static_cast<double>(total)));
        return true;
    };
    const oru::RecordingRepair report = oru::RecordedFile::repair(options.file, options.output, show);
    progress.clear();
    if (report.result != oru::REPAIR_DONE) {
        return failRepair(options, report);
    }
    const std::string& result = options.output.empty() ? options.file : options.output;
    const bool loss = report.frames_lost > 0 || report.frame_cut;
    writeOutput(fmt::format("{}: {} frames recovered, {} lost{}\n", result, report.frames_recovered, report.frames_lost,
                            report.frame_cut ? ", an unfinished one cut off at the end" : ""));
    return loss ? EXIT_DAMAGED : EXIT_OK;
}

}  // namespace

void registerRepair(CLI::App& tool, ExitStatus& status) {
    auto options = std::make_shared<RepairOptions>();
    CLI::App* command = tool.add_subcommand("repair", "Make a damaged RLX file playable, in place");
    command->add_option("FILE", options->file, "The recording")->required();
    command->add_option("--output", options->output, "Leave FILE as it is and write the result here")
        ->type_name("FILE");
    command->footer("Exit status: 0 every frame was kept, 3 frames were lost, 1 failed.");
    command->callback([options, &status] { status = runRepair(*options); });
}

}  // namespace koruone
