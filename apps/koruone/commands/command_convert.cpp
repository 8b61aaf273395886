#include <memory>

#include "koruone/commands/commands.hpp"
#include "koruone/output/compression_names.hpp"
#include "koruone/output/view_names.hpp"
#include "koruone/runs/convert_run.hpp"
#include "shared/input_options.hpp"

namespace koruone {
namespace {

const Choices<PictureFormat> kFormats{{"png", PictureFormat::PNG}, {"jpg", PictureFormat::JPEG}};

void addPlaceOption(CLI::App& command, const std::string& name, std::optional<FramePlace>& place,
                    const std::string& text) {
    const auto take = [&place, name](const std::string& value) {
        place = parseFramePlace(value);
        if (!place) {
            throw CLI::ValidationError(name, "'" + value +
                                                 "' is no frame such as 120, no time from the start such as 2.5s or "
                                                 "1:02, and no time in nanoseconds");
        }
    };
    command.add_option_function<std::string>(name, take, text)->type_name("FRAME|TIME");
}

}  // namespace

void registerConvert(CLI::App& tool, ExitStatus& status) {
    auto options = std::make_shared<ConvertOptions>();
    CLI::App* command = tool.add_subcommand("convert", "Write an RLX file in another form");
    addPathOption(*command, "FILE", options->input.file, "The recording")->required();
    addPathOption(*command, "OUT", options->output,
                  ".rlx2, .rlx or .mkv, .mp4 for players, or a directory (EuRoC layout, or --pictures)")
        ->required();
    addChoiceOption(*command, "--compression", options->compression, kCompressions,
                    "raw, h264, h265, lossless or ffv1 (default: as recorded; .mp4: h264 or h265)");
    addPlaceOption(*command, "--from", options->from, "First frame: its number, 2.5s from the start, or nanoseconds");
    addPlaceOption(*command, "--to", options->to, "Last frame, likewise");
    addNumberOption(*command, "--fps", options->fps, 1, 1000, "Keep so many frames a second (default: all)");
    addChoiceOption(*command, "--view", options->view, kViews,
                    "rectified, rectified_gray, unrectified or unrectified_gray (not into a recording)");
    addSizeOption(*command, "--size", options->size, "Make images fit into this size, their form kept");
    addChoiceOption(*command, "--pictures", options->pictures, kFormats,
                    "OUT is a directory of pictures named by their time: png or jpg");
    command->add_flag("--color", options->color, "Colour images in the EuRoC layout");
    addSettingsOption(*command, options->input.settings);
    command->add_flag("--overwrite", options->overwrite, "Replace an existing output");
    addFollowOption(*command, options->input.follow);
    command->add_flag("--json", options->json, "Print one object");
    command->callback([=, &status] {
        const bool gray = options->view == oru::RECTIFIED_GRAY || options->view == oru::UNRECTIFIED_GRAY;
        if (gray && options->color) {
            throw CLI::ValidationError("--color", "a gray --view has none");
        }
        status = ConvertRun(*options).run();
    });
}

}  // namespace koruone
