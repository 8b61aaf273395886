#pragma once

#include <memory>
#include <string>

#include "koruone/output/half_blocks.hpp"
#include "koruone/runs/FrameLoop.hpp"
#include "oru/CameraOne.hpp"
#include "shared/exit_status.hpp"
#include "shared/input_options.hpp"

namespace koruone {

struct PlayOptions {
    InputOptions input;
    int from = 0;  ///< first frame
};

/// The program that shows recordings on a screen, beside this one or in PATH; empty when it is not installed.
std::string findExplorer();
/// Becomes that program. Returns only when it cannot be started, which has been said.
ExitStatus openInExplorer(const std::string& explorer, const PlayOptions& options);

/// `koruone play` in a terminal: small pictures at the recorded pace, until the end, q or Ctrl-C.
class PlayRun {
public:
    explicit PlayRun(PlayOptions given);

    ExitStatus run();

private:
    bool draw();
    [[nodiscard]] oru::Resolution pictureSize() const;

    PlayOptions options;
    oru::CameraOne camera;
    oru::Mat image;
    FrameLoop loop;
};

}  // namespace koruone
