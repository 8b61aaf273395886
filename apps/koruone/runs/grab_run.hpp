#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "koruone/output/ImageWriter.hpp"
#include "koruone/output/TimingHistogram.hpp"
#include "koruone/output/output_file.hpp"
#include "koruone/runs/FrameLoop.hpp"
#include "oru/CameraOne.hpp"
#include "shared/Progress.hpp"
#include "shared/exit_status.hpp"
#include "shared/input_options.hpp"

namespace koruone {

struct GrabOptions {
    InputOptions input;
    uint64_t frames = 90;
    uint64_t every = 1;
    int from = 0;  ///< first frame of a recorded file
    oru::VIEW view = oru::RECTIFIED;
    oru::Resolution size;  ///< 0 x 0: the camera's
    oru::MEM memory = oru::CPU;
    std::string directory;   ///< empty: nothing is written
    bool overwrite = false;  ///< pictures of another run in the directory
    bool json = false;
    std::string notice;  ///< said once the input is open
};

/// One `koruone grab`: takes frames, retrieves every n-th, writes images and prints what it measured.
class GrabRun {
public:
    explicit GrabRun(GrabOptions given);

    ExitStatus run();

private:
    [[nodiscard]] bool mayWriteOutput() const;
    bool prepareOutput();
    bool goToFirstFrame();
    void takeFrames();
    bool useFrame();
    bool retrieveFrame(uint64_t frame);
    bool retrieveInto(oru::Mat& image);
    bool writeFrame(uint64_t frame);
    oru::Mat* acquireImage();
    void writeRow(uint64_t frame);
    void finishOutput();
    void fail() { status = EXIT_FAILED; }

    void printJson(const oru::FrameCounters& counters) const;
    void printText(const oru::FrameCounters& counters) const;

    GrabOptions options;
    ExitStatus status = EXIT_OK;
    oru::CameraOne camera;
    oru::Mat scratch;
    OutputFile table;
    std::unique_ptr<ImageWriter> writer;
    Progress progress{"grab"};
    FrameLoop loop;

    TimingHistogram grabTimes;
    TimingHistogram retrieveTimes;
    float sourceFps = 0.0F;
    oru::StreamInputStatus incoming;  ///< of a stream, at the end
    uint64_t waits = 0;
    std::chrono::nanoseconds waited{0};
};

}  // namespace koruone
