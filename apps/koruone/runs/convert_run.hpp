#pragma once

#include <memory>
#include <optional>
#include <string>

#include "koruone/output/FrameTarget.hpp"
#include "koruone/runs/FrameLoop.hpp"
#include "oru/RecordedFile.hpp"
#include "shared/Progress.hpp"
#include "shared/exit_status.hpp"

namespace koruone {

struct ConvertOptions {
    std::string file;
    std::string output;
    std::optional<oru::RLX_COMPRESSION_MODE> compression;  ///< none: as recorded, or what the output needs
    bool overwrite = false;
    bool follow = false;  ///< go on while the file grows
};

/// One `koruone convert`, from a file, without a camera. The form follows the output's name: .rlx, .rlx2 and .mkv are
/// recordings, .mp4 is a video, a name without an ending is a directory in the EuRoC layout.
class ConvertRun {
public:
    explicit ConvertRun(ConvertOptions given);

    ExitStatus run();

private:
    bool openInput();
    oru::ERROR_CODE readFrame();
    bool chooseTarget();
    bool makeWay();
    bool copyFrames();

    ConvertOptions options;
    oru::RecordedFile recording;
    oru::RLX_COMPRESSION_MODE mode = oru::RLX_H264;
    oru::Mat image;
    std::unique_ptr<FrameTarget> target;
    Progress progress{"convert"};
    int emptyReads = 0;
    FrameLoop loop;
};

}  // namespace koruone
