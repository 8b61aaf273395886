#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "koruone/runs/FrameLoop.hpp"
#include "oru/CameraOne.hpp"
#include "shared/exit_status.hpp"
#include "shared/input_options.hpp"

namespace koruone {

struct StreamOptions {
    InputOptions input;
    oru::StreamingParameters stream{.codec = oru::PLAIN_CODEC};
    double seconds = 0.0;  ///< 0: until interrupted or the input ends
    bool json = false;
};

/// One `koruone stream`: sends an input to the network and says once a second how that goes.
class StreamRun {
public:
    explicit StreamRun(StreamOptions streamOptions);

    ExitStatus run();

private:
    using Time = std::chrono::steady_clock::time_point;

    bool start();
    void sendFrames();
    void reportWhenDue();
    void report(Time now);
    void summarise() const;

    StreamOptions options;
    ExitStatus exitStatus = EXIT_OK;
    oru::CameraOne camera;
    FrameLoop loop;
    Time lastReport;
    uint64_t mostReceivers = 0;
    oru::StreamingStatus lastStatus;
};

}  // namespace koruone
