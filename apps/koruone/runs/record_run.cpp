#include "koruone/runs/record_run.hpp"

#include <fmt/core.h>

#include <filesystem>
#include <utility>

#include "koruone/camera/open_camera.hpp"
#include "koruone/output/compression_names.hpp"
#include "oru/logging.hpp"
#include "shared/interrupt.hpp"
#include "shared/json_output.hpp"
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
    if (const ExitStatus opened = openCamera(camera, options.input); opened != EXIT_OK) {
        return opened;
    }
    if (!start()) {
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
        complain(code, fmt::format("cannot record to {} as {}", options.file, compressionName(options.compression)),
                 Subject::RECORDER);
    }
    return code == oru::SUCCESS;
}

bool RecordRun::wantsMore() const {
    return (!options.frames || loop.frames() < *options.frames) &&
           (!options.seconds || loop.secondsSinceStart() < *options.seconds);
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
    std::string text = fmt::format("{} of {} frames", timeText(recording.seconds), frames);
    if (options.seconds) {
        text = fmt::format("{} of {}, {} frames", timeText(recording.seconds), timeText(*options.seconds), frames);
    } else if (!options.frames) {
        text = fmt::format("{}, {} frames", timeText(recording.seconds), frames);
    }
    progress.show(fmt::format("{}, {:.0f} MB{}", text, static_cast<double>(recording.bytes_written) / kMegabyte,
                              recording.frames_dropped == 0 ? "" : fmt::format(", {} lost", recording.frames_dropped)));
}

void RecordRun::print(const oru::RecordingStatus& recording) const {
    if (options.json) {
        writeJsonLine({{"file", options.file},
                       {"frames_written", recording.frames_written},
                       {"frames_dropped", recording.frames_dropped},
                       {"bytes", recording.bytes_written},
                       {"seconds", number(recording.seconds)},
                       {"compression", compressionName(options.compression)}});
        return;
    }
    writeOutput(fmt::format("{}: {} frames written, {} dropped, {:.1f} MB in {:.1f} s, {}\n", options.file,
                            recording.frames_written, recording.frames_dropped,
                            static_cast<double>(recording.bytes_written) / kMegabyte, recording.seconds,
                            compressionName(options.compression)));
}

ExitStatus RecordRun::finish() {
    progress.show("finishing the file");
    camera.disableRecording();
    const oru::RecordingStatus recording = camera.getRecordingStatus();
    const oru::String why = oru::lastErrorReason();
    const oru::StreamInputStatus incoming = camera.getStreamInputStatus();
    camera.close();
    progress.clear();
    if (incoming.samples_dropped > 0) {
        complain("the stream lost something on its way: {}.", streamText(incoming));
    }
    if (recording.last_result != oru::SUCCESS) {
        complain(recording.last_result, fmt::format("the recording of {} ended early", options.file), Subject::RECORDER,
                 why.get());
        status = EXIT_FAILED;
    }
    print(recording);
    return status == EXIT_OK && interrupted() && (options.frames || options.seconds) ? EXIT_INTERRUPTED : status;
}

}  // namespace koruone
