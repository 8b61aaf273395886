#include <fmt/core.h>

#include <map>
#include <memory>

#include "commands.hpp"
#include "grab_run.hpp"

namespace koruone {
namespace {

const std::map<std::string, oru::VIEW> kViews{
    {"rectified", oru::RECTIFIED},
    {"rectified_gray", oru::RECTIFIED_GRAY},
    {"unrectified", oru::UNRECTIFIED},
    {"unrectified_gray", oru::UNRECTIFIED_GRAY},
};
const std::map<std::string, oru::MEM> kMemories{{"cpu", oru::CPU}, {"gpu", oru::GPU}};

}  // namespace

void registerGrab(CLI::App& tool, ExitStatus& status) {
    auto options = std::make_shared<GrabOptions>();
    CLI::App* command = tool.add_subcommand("grab", "Take frames, measure, and write pictures");
    addInputOptions(*command, options->input);
    command->add_option("--frames", options->frames, "How many frames to take")
        ->capture_default_str()
        ->check(CLI::PositiveNumber.description(""))
        ->type_name("N");
    command->add_option("--every", options->every, "Retrieve the frames 0, N, 2N, ...")
        ->capture_default_str()
        ->check(CLI::PositiveNumber.description(""))
        ->type_name("N");
    command->add_option("--view", options->view, "rectified, rectified_gray, unrectified or unrectified_gray")
        ->transform(CLI::CheckedTransformer(kViews).description(""))
        ->type_name("VIEW");
    addSizeOption(*command, "--size", options->size, "Size of the retrieved picture (default: the camera's)");
    command->add_option("--memory", options->memory, "Where the picture is delivered: cpu or gpu")
        ->transform(CLI::CheckedTransformer(kMemories).description(""))
        ->type_name("MEM");
    command->add_option("--out", options->directory, "Write frame_000000.png ..., frames.csv, contact_sheet.png here")
        ->type_name("DIR");
    command->add_flag("--json", options->json, "Print one object with what was measured");
    command->callback([options, &status] { status = GrabRun(*options).run(); });
}

}  // namespace koruone
