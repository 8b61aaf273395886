#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "koruone/output/output_file.hpp"
#include "koruone/output/time_plot.hpp"
#include "koruone/runs/FrameLoop.hpp"
#include "koruone/runs/PacketClock.hpp"
#include "koruone/runs/imu_record.hpp"
#include "oru/CameraOne.hpp"
#include "shared/Progress.hpp"
#include "shared/exit_status.hpp"
#include "shared/input_options.hpp"

namespace koruone {

struct ImuOptions {
    InputOptions input;
    bool current = false;
    double seconds = 5.0;
    std::string csv;   ///< empty: no table
    std::string plot;  ///< empty: no plot
    bool overwrite = false;
    bool json = false;
};

/// One `koruone imu`: collects inertial samples, writes table and plot, prints rate and gaps.
class ImuRun {
public:
    explicit ImuRun(ImuOptions given);

    ExitStatus run();

private:
    /// Every packet of every image, in the images' own transforms.
    void collectBatches();
    /// The newest sample, asked a thousand times a second while another thread grabs.
    void collectCurrent();
    void pollCurrent(const std::atomic<oru::ERROR_CODE>& ending);
    void grabUntilStopped(std::atomic<bool>& stop, std::atomic<oru::ERROR_CODE>& ending);
    void take(const oru::SensorsData& sample);
    /// Whether to go on after a code; says what is wrong with any but SUCCESS and END_OF_INPUT.
    bool accept(oru::ERROR_CODE code, const char* what);
    bool openFiles();
    bool closeFiles();
    void print() const;
    void fail() { status = EXIT_FAILED; }

    ImuOptions options;
    ExitStatus status = EXIT_OK;
    oru::CameraOne camera;
    OutputFile table;
    OutputFile drawing;
    TimePlot plot;
    ImuPlotValues plotValues;
    PacketClock packetClock;
    int serial = 0;
    uint64_t firstTimestamp = 0;
    uint64_t synced = 0;
    oru::StreamInputStatus incoming;  ///< of a stream, at the end
    Progress progress{"imu"};
};

}  // namespace koruone
