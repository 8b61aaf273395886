#include <fmt/core.h>

#include <memory>

#include "koruone/commands/commands.hpp"
#include "oru/RecordedFile.hpp"
#include "shared/Progress.hpp"
#include "shared/interrupt.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

ExitStatus runVerify(const std::string& file) {
    Progress progress("verify");
    const auto show = [&](uint64_t done, uint64_t total) {
        progress.show(
            fmt::format("{:.0f} %", total == 0 ? 0.0 : 100.0 * static_cast<double>(done) / static_cast<double>(total)));
        return !interrupted();
    };
    const InterruptGuard guard;
    const oru::RecordingCheck report = oru::RecordedFile::verify(file, show);
    progress.clear();
    if (interrupted()) {
        return EXIT_INTERRUPTED;
    }
    if (report.condition == oru::RECORDING_CONDITION::INTACT) {
        writeOutput(
            fmt::format("{} is intact: {} frames, {} inertial samples\n", file, report.frames, report.imu_packets));
        return EXIT_OK;
    }
    if (!oru::isRepairable(report.condition)) {
        complain("{} {}.", file, oru::describe(report.condition));
        return EXIT_FAILED;
    }
    writeOutput(fmt::format("{} {}: {} whole frames, {} damaged or missing; 'koruone repair {}' makes it playable\n",
                            file, oru::describe(report.condition), report.frames, report.damaged, file));
    return EXIT_DAMAGED;
}

}  // namespace

void registerVerify(CLI::App& tool, ExitStatus& status) {
    auto file = std::make_shared<std::string>();
    CLI::App* command = tool.add_subcommand("verify", "Check every byte of an RLX file");
    command->add_option("FILE", *file, "The recording")->required();
    command->footer("Exit status: 0 intact, 3 damaged but repairable, 1 neither.");
    command->callback([file, &status] { status = runVerify(*file); });
}

}  // namespace koruone
