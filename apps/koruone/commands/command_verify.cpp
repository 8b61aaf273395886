#include <fmt/core.h>

#include <memory>

#include "koruone/commands/commands.hpp"
#include "oru/RecordedFile.hpp"
#include "shared/Progress.hpp"
#include "shared/interrupt.hpp"
#include "shared/json_output.hpp"
#include "shared/option_helpers.hpp"
#include "shared/recording_advice.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

ExitStatus statusOf(oru::RECORDING_CONDITION condition) {
    if (condition == oru::RECORDING_CONDITION::INTACT) {
        return EXIT_OK;
    }
    return oru::isRepairable(condition) ? EXIT_DAMAGED : EXIT_FAILED;
}

ExitStatus printReport(const std::string& file, const oru::RecordingCheck& report, bool json) {
    const ExitStatus status = statusOf(report.condition);
    if (status == EXIT_FAILED) {
        complainOfRecording(report.condition, file);
    }
    if (json) {
        writeJsonLine({{"file", file},
                       {"condition", oru::describe(report.condition)},
                       {"intact", status == EXIT_OK},
                       {"repairable", status == EXIT_DAMAGED},
                       {"frames", report.frames},
                       {"damaged", report.damaged},
                       {"samples", report.imu_packets}});
    } else if (status == EXIT_OK) {
        writeOutput(
            fmt::format("{} is intact: {} frames, {} inertial samples\n", file, report.frames, report.imu_packets));
    } else if (status == EXIT_DAMAGED) {
        writeOutput(
            fmt::format("{} {}: {} whole frames, {} damaged or missing; 'koruone repair {}' makes it playable\n", file,
                        oru::describe(report.condition), report.frames, report.damaged, file));
    }
    return status;
}

ExitStatus runVerify(const std::string& file, bool json) {
    Progress progress("verify");
    const auto show = [&](uint64_t done, uint64_t total) {
        progress.show(done, total);
        return !interrupted();
    };
    const InterruptGuard guard;
    const oru::RecordingCheck report = oru::RecordedFile::verify(file, show);
    progress.clear();
    if (interrupted()) {
        return EXIT_INTERRUPTED;
    }
    return printReport(file, report, json);
}

}  // namespace

void registerVerify(CLI::App& tool, ExitStatus& status) {
    auto file = std::make_shared<std::string>();
    auto json = std::make_shared<bool>(false);
    CLI::App* command = tool.add_subcommand("verify", "Check every byte of an RLX file");
    addPathOption(*command, "FILE", *file, "The recording")->required();
    command->add_flag("--json", *json, "Print one object");
    command->footer("Exit status: 0 intact, 3 damaged but repairable, 1 neither.");
    command->callback([file, json, &status] { status = runVerify(*file, *json); });
}

}  // namespace koruone
