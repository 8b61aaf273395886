#include <memory>

#include "commands.hpp"
#include "imu_run.hpp"

namespace koruone {

void registerImu(CLI::App& tool, ExitStatus& status) {
    auto options = std::make_shared<ImuOptions>();
    CLI::App* command = tool.add_subcommand("imu", "Collect inertial samples, with their rate and gaps");
    addInputOptions(*command, options->input);
    command->add_flag("--current", options->current,
                      "Ask for the newest sample, instead of every sample of the images");
    command->add_option("--seconds", options->seconds, "How long")
        ->capture_default_str()
        ->check(CLI::Range(0.001, 1e6).description(""))
        ->type_name("N");
    command->add_option("--csv", options->csv, "Write one row a packet")->type_name("FILE");
    command->add_option("--plot", options->plot, "Draw rate, acceleration and orientation over time")
        ->type_name("FILE.svg");
    command->add_flag("--json", options->json, "Print one object with rate and gaps");
    command->callback([options, &status] { status = ImuRun(*options).run(); });
}

}  // namespace koruone
