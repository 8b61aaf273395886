#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "koruone/output/FrameTarget.hpp"
#include "koruone/output/picture_file.hpp"
#include "koruone/runs/FrameLoop.hpp"
#include "koruone/runs/frame_range.hpp"
#include "oru/CameraOne.hpp"
#include "oru/RecordedFile.hpp"
#include "shared/Progress.hpp"
#include "shared/exit_status.hpp"
#include "shared/input_options.hpp"

namespace koruone {

struct ConvertOptions {
    InputOptions input;  ///< its file, and where calibrations lie
    std::string output;
    std::optional<oru::RLX_COMPRESSION_MODE> compression;  ///< none: as recorded, or what the output needs
    std::optional<FramePlace> from;
    std::optional<FramePlace> to;  ///< the last frame
    std::optional<oru::VIEW> view;
    std::optional<PictureFormat> pictures;  ///< a directory of pictures named by time
    bool color = false;                     ///< colour where the form is gray by itself
    int fps = 0;                            ///< 0: every frame
    oru::Resolution size;                   ///< the views fit into it; 0 x 0: as recorded
    bool overwrite = false;
    bool json = false;
};

/// One `koruone convert`, from a file, without a camera. The form follows the output's name: .rlx, .rlx2 and .mkv are
/// recordings, .mp4 is a video, a name without an ending is a directory in the EuRoC layout or of pictures.
class ConvertRun {
public:
    explicit ConvertRun(ConvertOptions given);

    ExitStatus run();

private:
    bool openInput();
    ExitStatus chooseTarget();
    ExitStatus chooseFrames();
    ExitStatus openViews();
    void describeCamera();
    bool makeWay();
    bool copyFrames();
    void print() const;

    [[nodiscard]] bool drawsViews() const { return view.has_value(); }
    [[nodiscard]] int position();
    oru::ERROR_CODE readFrame();
    oru::ERROR_CODE readView();
    bool useFrame();
    std::vector<oru::RecordedSample> samplesUpTo(int frame);

    ConvertOptions options;
    oru::RecordedFile recording;
    oru::CameraOne player;          // draws views; open only where they are wanted
    std::optional<oru::VIEW> view;  // none: images as they were recorded
    FrameFacts facts;
    const char* form = "";
    oru::Mat image;
    std::unique_ptr<FrameTarget> target;
    bool written = true;
    int firstFrame = 0;
    int lastFrame = -1;
    int samplesFrom = 0;  // frame whose samples go with the next one written
    uint64_t framesWritten = 0;
    std::optional<RateChooser> rate;
    Progress progress{"convert"};
    int emptyReads = 0;
    FrameLoop loop;
};

}  // namespace koruone
