#include <memory>

#include "koruone/commands/commands.hpp"
#include "koruone/output/compression_names.hpp"
#include "koruone/runs/convert_run.hpp"
#include "shared/input_options.hpp"

namespace koruone {

void registerConvert(CLI::App& tool, ExitStatus& status) {
    auto options = std::make_shared<ConvertOptions>();
    auto mode = std::make_shared<oru::RLX_COMPRESSION_MODE>(oru::RLX_H264);
    CLI::App* command = tool.add_subcommand("convert", "Write an RLX file in another form");
    command->add_option("FILE", options->file, "The recording")->required();
    command->add_option("OUT", options->output, ".rlx2, .rlx or .mkv, .mp4 for players, or a directory (EuRoC layout)")
        ->required();
    CLI::Option* compression =
        addChoiceOption(*command, "--compression", *mode, kCompressions,
                        "raw, h264, h265, lossless or ffv1 (default: as recorded; .mp4: h264 or h265)");
    command->add_flag("--overwrite", options->overwrite, "Replace an existing output");
    addFollowOption(*command, options->follow);
    command->callback([=, &status] {
        if (compression->count() > 0) {
            options->compression = *mode;
        }
        status = ConvertRun(*options).run();
    });
}

}  // namespace koruone
