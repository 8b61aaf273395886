#include "koruone/runs/grab_run.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "koruone/camera/open_camera.hpp"
#include "shared/interrupt.hpp"
#include "shared/json_output.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

using Clock = std::chrono::steady_clock;

double toSeconds(std::chrono::nanoseconds duration) {
    return std::chrono::duration<double>(duration).count();
}

Json percentile(const TimingHistogram& times, double percent) {
    return times.count() == 0 ? Json(nullptr) : Json(times.percentileUs(percent));
}

}  // namespace

GrabRun::GrabRun(GrabOptions given)
    : options(std::move(given)),
      loop([this] { return camera.grab(); }, inputKind(options.input), &progress,
           {patienceOf(options.input), "", false}) {}

ExitStatus GrabRun::run() {
    const InterruptGuard guard;
    if (!mayWriteOutput()) {
        return EXIT_FAILED;
    }
    if (const ExitStatus opened = openCamera(camera, options.input); opened != EXIT_OK) {
        return opened;
    }
    if (!options.notice.empty()) {
        complain("{}.", options.notice);
    }
    if (!goToFirstFrame() || !prepareOutput()) {
        return EXIT_FAILED;
    }
    sourceFps = camera.getCameraFPS();
    takeFrames();
    const oru::FrameCounters counters = camera.getFrameCounters();
    incoming = camera.getStreamInputStatus();
    camera.close();
    finishOutput();
    progress.clear();
    if (options.json) {
        printJson(counters);
    } else {
        printText(counters);
    }
    return status == EXIT_OK && interrupted() ? EXIT_INTERRUPTED : status;
}

bool GrabRun::mayWriteOutput() const {
    std::error_code error;
    if (options.overwrite || options.directory.empty() || !std::filesystem::is_directory(options.directory, error) ||
        std::filesystem::is_empty(options.directory, error)) {
        return true;
    }
    complain("{} is not empty; use --overwrite to replace the pictures in it, or choose another --out.",
             options.directory);
    return false;
}

bool GrabRun::prepareOutput() {
    if (options.directory.empty()) {
        return true;
    }
    std::string error;
    if (!makeDirectory(options.directory, error) || !removePictures(options.directory, error)) {
        complain("{}; choose another --out.", error);
        return false;
    }
    if (!table.open(std::filesystem::path(options.directory) / "frames.csv")) {
        complain("{}; choose another --out.", table.error());
        return false;
    }
    std::string header = "index,timestamp_ns";
    for (const auto& counter : namedCounters({})) {
        header += fmt::format(",{}", counter.first);
    }
    table.write(header + "\n");
    writer = std::make_unique<ImageWriter>(options.directory);
    return true;
}

bool GrabRun::goToFirstFrame() {
    const oru::ERROR_CODE code = options.from == 0 ? oru::SUCCESS : camera.setRLXPosition(options.from);
    if (code != oru::SUCCESS) {
        complain("{} has {} frames; there is no frame {}.", options.input.file, camera.getRLXNumberOfFrames(),
                 options.from);
    }
    if (!options.input.file.empty() && !options.input.follow) {
        const int left = camera.getRLXNumberOfFrames() - camera.getRLXPosition();
        options.frames = std::min(options.frames, static_cast<uint64_t>(std::max(left, 0)));
    }
    return code == oru::SUCCESS;
}

void GrabRun::takeFrames() {
    const auto wants = [this] { return loop.frames() < options.frames; };
    if (!loop.run(wants, [this] { return useFrame(); })) {
        fail();
    }
}

bool GrabRun::useFrame() {
    const uint64_t frame = loop.frames() - 1;
    grabTimes.record(loop.lastTaking());
    writeRow(frame);
    if (frame % options.every == 0 && !retrieveFrame(frame)) {
        return false;
    }
    progress.show(loop.frames(), options.frames, fmt::format("{:.1f} frames/s", loop.framesPerSecond()));
    return true;
}

bool GrabRun::retrieveFrame(uint64_t frame) {
    return writer == nullptr ? retrieveInto(scratch) : writeFrame(frame);
}

bool GrabRun::retrieveInto(oru::Mat& image) {
    const Clock::time_point start = Clock::now();
    const oru::ERROR_CODE code = camera.retrieveImage(image, options.view, options.memory, options.size);
    retrieveTimes.record(Clock::now() - start);
    if (code != oru::SUCCESS) {
        progress.clear();
        complain(code, "cannot retrieve the picture");
        fail();
    }
    return code == oru::SUCCESS;
}

bool GrabRun::writeFrame(uint64_t frame) {
    oru::Mat* image = acquireImage();
    if (image == nullptr) {
        fail();
        return false;
    }
    bool ready = retrieveInto(*image);
    if (ready && options.memory == oru::GPU) {
        ready = image->download() == oru::SUCCESS;
        if (!ready) {
            complain("cannot copy a picture from the GPU; use --memory cpu.");
            fail();
        }
    }
    if (ready) {
        writer->submit(image, frame);
    } else {
        writer->release(image);
    }
    return ready && !table.failed();
}

oru::Mat* GrabRun::acquireImage() {
    if (writer->hasRoom()) {
        return writer->acquire();
    }
    if (waits++ == 0) {
        progress.clear();
        complain("the pictures are written more slowly than they come: waiting for the disk each time.");
    }
    const Clock::time_point start = Clock::now();
    oru::Mat* image = writer->acquire();
    waited += Clock::now() - start;
    return image;
}

void GrabRun::writeRow(uint64_t frame) {
    if (!table.isOpen()) {
        return;
    }
    std::string row = fmt::format("{},{}", frame, camera.getTimestamp(oru::IMAGE));
    for (const auto& counter : namedCounters(camera.getFrameCounters())) {
        row += fmt::format(",{}", counter.second);
    }
    table.write(row + "\n");
}

void GrabRun::finishOutput() {
    if (writer == nullptr) {
        return;
    }
    progress.show("finishing the pictures");
    const bool imagesKept = writer->finish();
    const bool tableKept = table.close();
    progress.clear();
    if (!imagesKept || !tableKept) {
        complain("{}; make room or choose another --out.", imagesKept ? table.error() : writer->error());
        fail();
    }
    if (waits > 0) {
        complain("waited {:.1f} s for the disk, before {} of {} pictures.", toSeconds(waited), waits,
                 writer->written());
    }
}

void GrabRun::printJson(const oru::FrameCounters& counters) const {
    Json result;
    result["frames"] = loop.frames();
    result["seconds"] = number(loop.seconds());
    result["source_fps"] = number(static_cast<double>(sourceFps));
    result["grab_fps"] = number(loop.framesPerSecond());
    result["counters"] = toJson(counters);
    if (!options.input.stream.empty()) {
        result["stream"] = toJson(incoming);
    }
    result["grab_p50_us"] = percentile(grabTimes, 50.0);
    result["grab_p99_us"] = percentile(grabTimes, 99.0);
    result["retrieve_p50_us"] = percentile(retrieveTimes, 50.0);
    result["retrieve_p99_us"] = percentile(retrieveTimes, 99.0);
    writeJsonLine(result);
}

void GrabRun::printText(const oru::FrameCounters& counters) const {
    std::string text = fmt::format("{} in {:.3f} s: {:.2f} frames/s from a source of {:.0f} frames/s\n",
                                   counted(loop.frames(), "frame"), loop.seconds(), loop.framesPerSecond(), sourceFps);
    text += fmt::format("source: {} produced, {} delivered, {} lost", counters.produced, counters.delivered,
                        counters.lost());
    for (const auto& [name, value] : namedCounters(counters)) {
        const bool total = std::string_view(name) == "produced" || std::string_view(name) == "delivered";
        if (value > 0 && !total) {
            text += fmt::format(", {} {}", name, value);
        }
    }
    if (!options.input.stream.empty()) {
        text += "\nstream: " + streamText(incoming);
    }
    text += fmt::format("\n{:<10}  {:>10}  {:>10}\n", "time in us", "median", "99 %");
    text += fmt::format("{:<10}  {:>10.1f}  {:>10.1f}\n", "grab", grabTimes.percentileUs(50.0),
                        grabTimes.percentileUs(99.0));
    if (retrieveTimes.count() > 0) {
        text += fmt::format("{:<10}  {:>10.1f}  {:>10.1f}\n", "retrieve", retrieveTimes.percentileUs(50.0),
                            retrieveTimes.percentileUs(99.0));
    }
    if (writer != nullptr) {
        text += fmt::format("{} written to {}\n", counted(writer->written(), "picture"), options.directory);
    }
    writeOutput(text);
}

}  // namespace koruone
