#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "exit_status.hpp"
#include "input_options.hpp"
#include "oru/CameraOne.hpp"

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
    explicit StreamRun(StreamOptions options);

    ExitStatus run();

private:
    using Time = std::chrono::steady_clock::time_point;

    bool start();
    void sendFrames();
    bool takeFrame();
    void report(Time now);
    void summarise() const;
    [[nodiscard]] double secondsSince(Time begin) const;

    StreamOptions options_;
    ExitStatus status_ = EXIT_OK;
    oru::CameraOne camera_;
    Time begin_;
    Time lastFrame_;
    Time lastReport_;
    uint64_t frames_ = 0;
    uint64_t mostReceivers_ = 0;
    oru::StreamingStatus last_;
};

}  // namespace koruone
