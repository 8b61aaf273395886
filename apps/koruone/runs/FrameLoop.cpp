#include "koruone/runs/FrameLoop.hpp"

#include <fmt/core.h>

#include <utility>

#include "shared/interrupt.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

using Clock = std::chrono::steady_clock;

double toSeconds(std::chrono::nanoseconds duration) {
    return std::chrono::duration<double>(duration).count();
}

}  // namespace

FrameLoop::FrameLoop(Source takeFrame, oru::InputKind kind, Progress* line, Policy behaviour)
    : take(std::move(takeFrame)), input(kind), progress(line), policy(std::move(behaviour)), began(Clock::now()) {
    firstFrame = lastFrame = ended = began;
}

bool FrameLoop::run(const std::function<bool()>& wants, const std::function<bool()>& uses) {
    began = firstFrame = lastFrame = ended = Clock::now();
    while (wants() && !interrupted()) {
        const Time start = Clock::now();
        const oru::ERROR_CODE code = take();
        ended = Clock::now();
        if (code == oru::END_OF_INPUT) {
            return true;
        }
        if (waitsOn(code)) {
            continue;
        }
        if (code != oru::SUCCESS) {
            complainOf(code);
            return false;
        }
        taking = ended - start;
        lastFrame = ended;
        if (count++ == 0) {
            firstFrame = ended;
        }
        if (!uses()) {
            return true;
        }
    }
    return true;
}

bool FrameLoop::waitsOn(oru::ERROR_CODE code) {
    const bool waits = code == oru::CAMERA_NOT_READY && ended - lastFrame < policy.patience;
    if (waits && progress != nullptr) {
        progress->show(fmt::format("no frame for {:.1f} s, waiting", toSeconds(ended - lastFrame)));
    }
    return waits;
}

void FrameLoop::complainOf(oru::ERROR_CODE code) {
    if (policy.quiet) {
        return;
    }
    if (progress != nullptr) {
        progress->clear();
    }
    std::string what = policy.failure.empty() ? "no frame" : policy.failure;
    if (code == oru::CAMERA_NOT_READY && policy.patience.count() > 0) {
        what += fmt::format(" for {:.1f} s", toSeconds(ended - lastFrame));
    }
    complain(code, policy.failure.empty() ? what + " after " + counted(count, "frame") : what, subjectOf(input));
}

double FrameLoop::secondsSinceStart() const {
    return toSeconds(Clock::now() - began);
}

double FrameLoop::seconds() const {
    return toSeconds(ended - began);
}

double FrameLoop::framesPerSecond() const {
    const double span = toSeconds(lastFrame - firstFrame);
    return count < 2 || span <= 0.0 ? 0.0 : static_cast<double>(count - 1) / span;
}

}  // namespace koruone
