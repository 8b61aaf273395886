#include "koruone/runs/record_run.hpp"

#include <fmt/core.h>

#include <filesystem>
#include <utility>

#include "koruone/camera/open_camera.hpp"
#include "koruone/output/compression_names.hpp"
#include "shared/interrupt.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

constexpr double kMegabyte = 1e6;

}  // namespace

RecordRun::RecordRun(RecordOptions given)
    : options(std::move(given)),
      loop([this] { return camera.grab(); }, inputKind(options.input), &progress,
           {patienceOf(options.input), "", false}) {}

ExitStatus RecordRun::run() {
    const InterruptGuard guard;
    std::error_code unknown;
    if (!options.overwrite && std::filesystem::exists(options.file, unknown)) {
        complain("{} exists; use --overwrite to replace it.", options.file);
        return EXIT_FAILED;
    }
    if (!openCamera(camera, options.input) || !start()) {
        return EXIT_FAILED;
    }
    if (options.file.ends_with(".rlx") && camera.getCameraInformation().sensors.accelerometer.is_available) {
        complain("{} keeps no inertial samples, by its version of the format; a name that ends in .rlx2 does.",
                 options.file);
    }
    grabFrames();
    return finish();
}

bool RecordRun::start() {
    const oru::RecordingParameters parameters{options.file, options.compression, options.bitrate, options.target_fps,
                                              options.overwrite};
    const oru::ERROR_CODE code = camera.enableRecording(parameters);
    if (code != oru::SUCCESS) {
        complain(code, fmt::format("cannot record to {} as {}", options.file, compressionName(options.compression)));
    }
    return code == oru::SUCCESS;
}

bool RecordRun::wantsMore() const {
    return (!options.frames || loop.frames() < *options.frames) &&
           (!options.seconds || loop.secondsSinceStart() < static_cast<double>(*options.seconds));
}

void RecordRun::grabFrames() {
    const auto uses = [this] {
        if (!camera.getRecordingStatus().recording) {
            return false;
        }
        showProgress();
        return true;
    };
    if (!loop.run([this] { return wantsMore(); }, uses)) {
        status = EXIT_FAILED;
    }
}

void RecordRun::showProgress() {
    const oru::RecordingStatus recording = camera.getRecordingStatus();
    const std::string frames =
        options.frames ? fmt::format("{}/{}", loop.frames(), *options.frames) : fmt::format("{}", loop.frames());
    progress.show(fmt::format("{} frames, {} dropped, {:.1f} MB, {:.1f} s", frames, recording.frames_dropped,
                              static_cast<double>(recording.bytes_written) / kMegabyte, recording.seconds));
}

ExitStatus RecordRun::finish() {
    progress.show("finishing the file");
    camera.disableRecording();
    const oru::RecordingStatus recording = camera.getRecordingStatus();
    const oru::StreamInputStatus incoming = camera.getStreamInputStatus();
    camera.close();
    progress.clear();
    if (incoming.samples_dropped > 0) {
        complain("the stream lost something on its way: {}.", streamText(incoming));
    }
    if (recording.last_result != oru::SUCCESS) {
        complain(recording.last_result,
                 fmt::format("the recording of {} ended early, the disk may be full", options.file));
        status = EXIT_FAILED;
    }
    writeOutput(fmt::format("{}: {} frames written, {} dropped, {:.1f} MB in {:.1f} s, {}\n", options.file,
                            recording.frames_written, recording.frames_dropped,
                            static_cast<double>(recording.bytes_written) / kMegabyte, recording.seconds,
                            compressionName(options.compression)));
    return status == EXIT_OK && interrupted() && (options.frames || options.seconds) ? EXIT_INTERRUPTED : status;
}

}  // namespace koruone
