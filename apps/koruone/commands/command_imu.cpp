#include <memory>

#include "koruone/camera/open_camera.hpp"
#include "koruone/commands/commands.hpp"
#include "koruone/runs/imu_run.hpp"
#include "shared/option_helpers.hpp"

namespace koruone {
void registerImu(CLI::App& tool, ExitStatus& status) {
    auto options = std::make_shared<ImuOptions>();
    CLI::App* command = tool.add_subcommand("imu", "Collect inertial samples, with their rate and gaps");
    addCameraOptions(*command, options->input);
    command->add_flag("--current", options->current,
                      "Ask for the newest sample, instead of every sample of the images");
    addSecondsOption(*command, "--seconds", options->seconds, "How long (default 5)");
    addPathOption(*command, "--csv", options->csv, "Write one row a packet");
    addPathOption(*command, "--plot", options->plot, "Draw rate, acceleration and orientation over time", "FILE.svg");
    command->add_flag("--overwrite", options->overwrite, "Replace an existing --csv or --plot");
    command->add_flag("--json", options->json, "Print one object with rate and gaps");
    command->callback([options, &status] {
        if (!options->csv.empty() && options->csv == options->plot) {
            throw CLI::ValidationError("--plot", "the table and the drawing cannot have one name");
        }
        status = ImuRun(*options).run();
    });
}

}  // namespace koruone
