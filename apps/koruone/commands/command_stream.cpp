#include <memory>

#include "koruone/camera/open_camera.hpp"
#include "koruone/commands/commands.hpp"
#include "koruone/runs/stream_run.hpp"
#include "shared/option_helpers.hpp"

namespace koruone {
namespace {

const Choices<oru::STREAMING_CODEC> kCodecs{{"h264", oru::PLAIN_CODEC}, {"h265", oru::DENSE_CODEC}};

void addStreamOptions(CLI::App& command, oru::StreamingParameters& stream) {
    addNumberOption(command, "--port", stream.port, uint16_t{1}, uint16_t{65535}, "UDP port (default 30000)");
    addChoiceOption(command, "--codec", stream.codec, kCodecs, "h264 (default) or h265, which needs a faster machine");
    addNumberOption(command, "--bitrate", stream.bitrate, 1000U, 60000U,
                    "kbit/s (default: by the size and rate of the pictures)");
    addNumberOption(command, "--gop", stream.gop_size, 1, 256, "Frames from key frame to key frame (default: 2 s)");
    addNumberOption(command, "--target-fps", stream.target_fps, 15U, 60U,
                    "Frames per second of the stream: 15, 30 or 60, dividing the camera's rate (default: that rate)");
    addNumberOption(command, "--chunk", stream.chunk_size, uint16_t{1024}, uint16_t{65000},
                    "Bytes that one receiver gets at a stretch (default 16084)");
    command.add_flag("--adaptive", stream.adaptive_bitrate, "Lower the bitrate while the network cannot carry it");
}

}  // namespace

void registerStream(CLI::App& tool, ExitStatus& status) {
    auto options = std::make_shared<StreamOptions>();
    CLI::App* command = tool.add_subcommand("stream", "Send the images to the network");
    addCameraOptions(*command, options->input);
    addStreamOptions(*command, options->stream);
    addSecondsOption(*command, "--seconds", options->seconds, "How long (default: until Ctrl-C)");
    command->add_flag("--json", options->json, "Print one object at the end, and nothing before");
    command->callback([options, &status] {
        // Whoever watches a played file wants to see it at its own pace.
        options->input.realtime = true;
        status = StreamRun(*options).run();
    });
}

}  // namespace koruone
