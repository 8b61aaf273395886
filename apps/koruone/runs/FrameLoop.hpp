#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "oru/error_code.hpp"
#include "oru/types.hpp"
#include "shared/Progress.hpp"

namespace koruone {

/// Takes frame after frame until nobody wants more, the input ends, the command is asked to stop or the source fails.
class FrameLoop {
public:
    using Time = std::chrono::steady_clock::time_point;
    /// Takes the next frame, as CameraOne::grab() does.
    using Source = std::function<oru::ERROR_CODE()>;

    struct Policy {
        /// After the last frame for this long CAMERA_NOT_READY does not count as a failure.
        std::chrono::nanoseconds patience{0};
        /// How a failure is called; empty: "no frame" and after how many.
        std::string failure;
        /// Whoever runs the loop tells failures itself.
        bool quiet = false;
    };

    /// `line`, which may be null, is cleared before a failure is told.
    FrameLoop(Source takeFrame, oru::InputKind kind, Progress* line)
        : FrameLoop(std::move(takeFrame), kind, line, Policy{}) {}
    FrameLoop(Source takeFrame, oru::InputKind kind, Progress* line, Policy behaviour);

    /// Asks `wants` before each frame and gives each one to `uses`; a false answer ends the loop.
    /// False: the source failed, and that has been said unless it is to be quiet.
    [[nodiscard]] bool run(const std::function<bool()>& wants, const std::function<bool()>& uses);

    [[nodiscard]] uint64_t frames() const { return count; }
    /// How long the source took for the last frame.
    [[nodiscard]] std::chrono::nanoseconds lastTaking() const { return taking; }
    [[nodiscard]] double secondsSinceStart() const;
    /// From the start to the last attempt, frame or not.
    [[nodiscard]] double seconds() const;
    /// From the first to the last frame; 0 with fewer than two.
    [[nodiscard]] double framesPerSecond() const;

private:
    /// Whether to try again after an attempt without a frame.
    [[nodiscard]] bool waitsOn(oru::ERROR_CODE code);
    void complainOf(oru::ERROR_CODE code);

    Source take;
    oru::InputKind input;
    Progress* progress;
    Policy policy;
    uint64_t count = 0;
    std::chrono::nanoseconds taking{0};
    Time began;
    Time firstFrame;
    Time lastFrame;
    Time ended;
};

}  // namespace koruone
