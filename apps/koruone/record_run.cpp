#include "record_run.hpp"

#include <fmt/core.h>

#include <utility>

#include "interrupt.hpp"
#include "open_camera.hpp"
#include "report.hpp"

namespace koruone {
namespace {

constexpr double kMegabyte = 1e6;

double secondsSince(std::chrono::steady_clock::time_point begin) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

}  // namespace

const Choices<oru::RLX_COMPRESSION_MODE> kCompressions{
    {"raw", oru::RLX_RAW},           {"h264", oru::RLX_H264}, {"h265", oru::RLX_H265},
    {"lossless", oru::RLX_LOSSLESS}, {"ffv1", oru::RLX_FFV1},
};

std::string compressionName(oru::RLX_COMPRESSION_MODE mode) {
    for (const auto& [name, value] : kCompressions) {
        if (value == mode) {
            return name;
        }
    }
    return fmt::format("mode {}", static_cast<int>(mode));
}

RecordRun::RecordRun(RecordOptions options) : options_(std::move(options)) {}

ExitStatus RecordRun::run() {
    const InterruptGuard guard;
    if (!openCamera(camera_, options_.input) || !start()) {
        return EXIT_FAILED;
    }
    grabFrames();
    return finish();
}

bool RecordRun::start() {
    const oru::RecordingParameters parameters{options_.file, options_.compression, options_.bitrate,
                                              options_.target_fps, options_.overwrite};
    const oru::ERROR_CODE code = camera_.enableRecording(parameters);
    if (code != oru::SUCCESS) {
        complain(code, fmt::format("cannot record to {} as {}", options_.file, compressionName(options_.compression)));
    }
    return code == oru::SUCCESS;
}

bool RecordRun::isOver() const {
    return (options_.frames && grabbed_ >= *options_.frames) ||
           (options_.seconds && secondsSince(begin_) >= static_cast<double>(*options_.seconds)) || interrupted();
}

void RecordRun::grabFrames() {
    begin_ = std::chrono::steady_clock::now();
    while (!isOver()) {
        const oru::ERROR_CODE code = camera_.grab();
        if (code == oru::END_OF_INPUT) {
            return;
        }
        if (code != oru::SUCCESS) {
            progress_.clear();
            complain(code, "no frame after " + counted(grabbed_, "frame"), inputKind(options_.input));
            status_ = EXIT_FAILED;
            return;
        }
        ++grabbed_;
        if (!camera_.getRecordingStatus().recording) {
            return;
        }
        showProgress();
    }
}

void RecordRun::showProgress() {
    const oru::RecordingStatus recording = camera_.getRecordingStatus();
    const std::string frames =
        options_.frames ? fmt::format("{}/{}", grabbed_, *options_.frames) : fmt::format("{}", grabbed_);
    progress_.show(fmt::format("{} frames, {} dropped, {:.1f} MB, {:.1f} s", frames, recording.frames_dropped,
                               static_cast<double>(recording.bytes_written) / kMegabyte, recording.seconds));
}

ExitStatus RecordRun::finish() {
    progress_.show("finishing the file");
    camera_.disableRecording();
    const oru::RecordingStatus recording = camera_.getRecordingStatus();
    camera_.close();
    progress_.clear();
    if (recording.last_result != oru::SUCCESS) {
        complain(recording.last_result,
                 fmt::format("the recording of {} ended early, the disk may be full", options_.file));
        status_ = EXIT_FAILED;
    }
    writeOutput(fmt::format("{}: {} frames written, {} dropped, {:.1f} MB in {:.1f} s, {}\n", options_.file,
                            recording.frames_written, recording.frames_dropped,
                            static_cast<double>(recording.bytes_written) / kMegabyte, recording.seconds,
                            compressionName(options_.compression)));
    return status_ == EXIT_OK && interrupted() && (options_.frames || options_.seconds) ? EXIT_INTERRUPTED : status_;
}

}  // namespace koruone
