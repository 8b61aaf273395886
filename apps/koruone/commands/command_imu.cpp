#include <memory>

#include "koruone/camera/open_camera.hpp"
#include "koruone/commands/commands.hpp"
#include "koruone/runs/imu_run.hpp"
#include "shared/option_helpers.hpp"

namespace koruone {
namespace {

constexpr double kMostSeconds = 1e6;

}  // namespace

void registerImu(CLI::App& tool, ExitStatus& status) {
    auto options = std::make_shared<ImuOptions>();
    CLI::App* command = tool.add_subcommand("imu", "Collect inertial samples, with their rate and gaps");
    addCameraOptions(*command, options->input);
    command->add_flag("--current", options->current,
                      "Ask for the newest sample, instead of every sample of the images");
    const auto takeSeconds = [options](const std::string& text) {
        const auto seconds = parseNumber<double>(text);
        if (!seconds || !(*seconds > 0.0) || *seconds > kMostSeconds) {
            throw CLI::ValidationError("--seconds", "'" + text + "' is not a number of seconds above 0");
        }
        options->seconds = *seconds;
    };
    command->add_option_function<std::string>("--seconds", takeSeconds, "How long (default 5)")->type_name("N");
    command->add_option("--csv", options->csv, "Write one row a packet")->type_name("FILE");
    command->add_option("--plot", options->plot, "Draw rate, acceleration and orientation over time")
        ->type_name("FILE.svg");
    command->add_flag("--json", options->json, "Print one object with rate and gaps");
    command->callback([options, &status] { status = ImuRun(*options).run(); });
}

}  // namespace koruone
