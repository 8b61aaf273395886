#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "exit_status.hpp"
#include "input_options.hpp"
#include "oru/CameraOne.hpp"
#include "output_file.hpp"
#include "picture_writer.hpp"
#include "progress.hpp"
#include "timing_histogram.hpp"

namespace koruone {

struct GrabOptions {
    InputOptions input;
    uint64_t frames = 90;
    uint64_t every = 1;
    int from = 0;  ///< first frame of a recorded file
    oru::VIEW view = oru::RECTIFIED;
    oru::Resolution size;  ///< 0 x 0: the camera's
    oru::MEM memory = oru::CPU;
    std::string directory;  ///< empty: nothing is written
    bool json = false;
};

/// One `koruone grab`: takes frames, retrieves every n-th, writes pictures and prints what it measured.
class GrabRun {
public:
    explicit GrabRun(GrabOptions options);

    ExitStatus run();

private:
    using Time = std::chrono::steady_clock::time_point;

    bool prepareOutput();
    bool goToFirstFrame();
    void takeFrames();
    bool takeFrame(uint64_t frame);
    bool retrieveFrame(uint64_t frame);
    bool retrieveInto(oru::Mat& picture);
    bool writeFrame(uint64_t frame);
    oru::Mat* acquirePicture();
    void writeRow(uint64_t frame);
    void finishOutput();
    void fail() { status_ = EXIT_FAILED; }

    [[nodiscard]] double seconds() const;
    [[nodiscard]] double grabFps() const;
    void printJson(const oru::FrameCounters& counters) const;
    void printText(const oru::FrameCounters& counters) const;

    GrabOptions options_;
    ExitStatus status_ = EXIT_OK;
    oru::CameraOne camera_;
    oru::Mat picture_;
    OutputFile table_;
    std::unique_ptr<PictureWriter> writer_;
    Progress progress_{"grab"};

    TimingHistogram grabTimes_;
    TimingHistogram retrieveTimes_;
    uint64_t frames_ = 0;
    float sourceFps_ = 0.0F;
    Time begin_;
    Time firstFrame_;
    Time lastFrame_;
    uint64_t waits_ = 0;
    std::chrono::nanoseconds waited_{0};
};

}  // namespace koruone
