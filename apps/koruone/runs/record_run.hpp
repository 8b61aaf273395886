#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "koruone/runs/FrameLoop.hpp"
#include "oru/CameraOne.hpp"
#include "shared/Progress.hpp"
#include "shared/exit_status.hpp"
#include "shared/input_options.hpp"

namespace koruone {

struct RecordOptions {
    InputOptions input;
    std::string file;
    std::optional<uint64_t> frames;
    std::optional<double> seconds;
    oru::RLX_COMPRESSION_MODE compression = oru::RLX_H264;
    uint32_t bitrate = 0;
    uint32_t target_fps = 0;
    bool overwrite = false;
    bool json = false;
};

/// One `koruone record`: grabs until the asked frames or seconds are over, the input ends or Ctrl-C comes.
class RecordRun {
public:
    explicit RecordRun(RecordOptions given);

    ExitStatus run();

private:
    bool start();
    void grabFrames();
    [[nodiscard]] bool wantsMore() const;
    void showProgress();
    void print(const oru::RecordingStatus& recording) const;
    ExitStatus finish();

    RecordOptions options;
    ExitStatus status = EXIT_OK;
    oru::CameraOne camera;
    Progress progress{"record"};
    FrameLoop loop;
};

}  // namespace koruone
