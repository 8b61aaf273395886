#include "grab_run.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "collaborators/CollaboratorFactory.hpp"
#include "interrupt.hpp"
#include "json_output.hpp"
#include "open_camera.hpp"
#include "report.hpp"

namespace koruone {
namespace {

using Clock = std::chrono::steady_clock;

double toSeconds(std::chrono::nanoseconds duration) {
    return std::chrono::duration<double>(duration).count();
}

/// Brings the picture's device memory to its host memory, both of which it holds.
bool downloadPicture(const oru::Mat& picture) {
    const auto platform = oru::CollaboratorFactory::processDefault();
    auto* host = picture.getPtr<unsigned char>(oru::CPU);
    const auto* device = picture.getPtr<unsigned char>(oru::GPU);
    if (platform == nullptr || host == nullptr || device == nullptr) {
        return false;
    }
    const std::size_t bytes = picture.getStepBytes(oru::CPU) * picture.getHeight();
    return platform->gpu().copyDeviceToHost(host, device, bytes) == 0;
}

Json percentile(const TimingHistogram& times, double percent) {
    return times.count() == 0 ? Json(nullptr) : Json(times.percentileUs(percent));
}

}  // namespace

GrabRun::GrabRun(GrabOptions options) : options_(std::move(options)) {}

ExitStatus GrabRun::run() {
    const InterruptGuard guard;
    if (!prepareOutput() || !openCamera(camera_, options_.input) || !goToFirstFrame()) {
        return EXIT_FAILED;
    }
    sourceFps_ = camera_.getCameraFPS();
    takeFrames();
    const oru::FrameCounters counters = camera_.getFrameCounters();
    camera_.close();
    finishOutput();
    progress_.clear();
    if (options_.json) {
        printJson(counters);
    } else {
        printText(counters);
    }
    return status_ == EXIT_OK && interrupted() ? EXIT_INTERRUPTED : status_;
}

bool GrabRun::prepareOutput() {
    if (options_.directory.empty()) {
        return true;
    }
    std::string error;
    if (!makeDirectory(options_.directory, error)) {
        complain("{}; choose another --out.", error);
        return false;
    }
    if (!table_.open(std::filesystem::path(options_.directory) / "frames.csv")) {
        complain("{}; choose another --out.", table_.error());
        return false;
    }
    std::string header = "index,timestamp_ns";
    for (const auto& counter : namedCounters({})) {
        header += fmt::format(",{}", counter.first);
    }
    table_.write(header + "\n");
    writer_ = std::make_unique<PictureWriter>(options_.directory);
    return true;
}

bool GrabRun::goToFirstFrame() {
    const oru::ERROR_CODE code = options_.from == 0 ? oru::SUCCESS : camera_.setRLXPosition(options_.from);
    if (code != oru::SUCCESS) {
        complain("{} has {} frames; there is no frame {}.", options_.input.file, camera_.getRLXNumberOfFrames(),
                 options_.from);
    }
    if (!options_.input.file.empty()) {
        const int left = camera_.getRLXNumberOfFrames() - camera_.getRLXPosition();
        options_.frames = std::min(options_.frames, static_cast<uint64_t>(std::max(left, 0)));
    }
    return code == oru::SUCCESS;
}

void GrabRun::takeFrames() {
    begin_ = lastFrame_ = Clock::now();
    while (frames_ < options_.frames && !interrupted()) {
        if (!takeFrame(frames_)) {
            return;
        }
        progress_.show(fmt::format("{}/{} frames, {:.1f} frames/s", frames_, options_.frames, grabFps()));
    }
}

bool GrabRun::takeFrame(uint64_t frame) {
    const Time start = Clock::now();
    const oru::ERROR_CODE code = camera_.grab();
    lastFrame_ = Clock::now();
    if (code == oru::END_OF_INPUT) {
        return false;
    }
    if (code != oru::SUCCESS) {
        progress_.clear();
        complain(code, fmt::format("no frame after {}", frames_));
        fail();
        return false;
    }
    grabTimes_.record(lastFrame_ - start);
    if (frames_++ == 0) {
        firstFrame_ = lastFrame_;
    }
    writeRow(frame);
    return frame % options_.every != 0 || retrieveFrame(frame);
}

bool GrabRun::retrieveFrame(uint64_t frame) {
    return writer_ == nullptr ? retrieveInto(picture_) : writeFrame(frame);
}

bool GrabRun::retrieveInto(oru::Mat& picture) {
    const Time start = Clock::now();
    const oru::ERROR_CODE code = camera_.retrieveImage(picture, options_.view, options_.memory, options_.size);
    retrieveTimes_.record(Clock::now() - start);
    if (code != oru::SUCCESS) {
        progress_.clear();
        complain(code, "cannot retrieve the picture");
        fail();
    }
    return code == oru::SUCCESS;
}

bool GrabRun::writeFrame(uint64_t frame) {
    oru::Mat* picture = acquirePicture();
    if (picture == nullptr) {
        fail();
        return false;
    }
    bool ready = retrieveInto(*picture);
    if (ready && options_.memory == oru::GPU) {
        const oru::Resolution size{picture->getWidth(), picture->getHeight()};
        ready =
            picture->alloc(size, picture->getDataType(), oru::CPU_AND_GPU) == oru::SUCCESS && downloadPicture(*picture);
        if (!ready) {
            complain("cannot copy a picture from the GPU; use --memory cpu.");
            fail();
        }
    }
    if (ready) {
        writer_->submit(picture, frame);
    } else {
        writer_->release(picture);
    }
    return ready && !table_.failed();
}

oru::Mat* GrabRun::acquirePicture() {
    if (writer_->hasRoom()) {
        return writer_->acquire();
    }
    if (waits_++ == 0) {
        progress_.clear();
        complain("the pictures are written more slowly than they come: waiting for the disk each time.");
    }
    const Time start = Clock::now();
    oru::Mat* picture = writer_->acquire();
    waited_ += Clock::now() - start;
    return picture;
}

void GrabRun::writeRow(uint64_t frame) {
    if (!table_.isOpen()) {
        return;
    }
    std::string row = fmt::format("{},{}", frame, camera_.getTimestamp(oru::IMAGE));
    for (const auto& counter : namedCounters(camera_.getFrameCounters())) {
        row += fmt::format(",{}", counter.second);
    }
    table_.write(row + "\n");
}

void GrabRun::finishOutput() {
    if (writer_ == nullptr) {
        return;
    }
    progress_.show("finishing the pictures");
    const bool pictures = writer_->finish();
    const bool table = table_.close();
    progress_.clear();
    if (!pictures || !table) {
        complain("{}; make room or choose another --out.", pictures ? table_.error() : writer_->error());
        fail();
    }
    if (waits_ > 0) {
        complain("waited {:.1f} s for the disk, before {} of {} pictures.", toSeconds(waited_), waits_,
                 writer_->written());
    }
}

double GrabRun::seconds() const {
    return toSeconds(lastFrame_ - begin_);
}

double GrabRun::grabFps() const {
    const double span = toSeconds(lastFrame_ - firstFrame_);
    return frames_ < 2 || span <= 0.0 ? 0.0 : static_cast<double>(frames_ - 1) / span;
}

void GrabRun::printJson(const oru::FrameCounters& counters) const {
    Json result;
    result["frames"] = frames_;
    result["seconds"] = number(seconds());
    result["source_fps"] = number(static_cast<double>(sourceFps_));
    result["grab_fps"] = number(grabFps());
    result["counters"] = toJson(counters);
    result["grab_p50_us"] = percentile(grabTimes_, 50.0);
    result["grab_p99_us"] = percentile(grabTimes_, 99.0);
    result["retrieve_p50_us"] = percentile(retrieveTimes_, 50.0);
    result["retrieve_p99_us"] = percentile(retrieveTimes_, 99.0);
    writeJsonLine(result);
}

void GrabRun::printText(const oru::FrameCounters& counters) const {
    std::string text = fmt::format("{} frames in {:.3f} s: {:.2f} frames/s from a source of {:.0f} frames/s\n", frames_,
                                   seconds(), grabFps(), sourceFps_);
    text += fmt::format("source: {} produced, {} delivered, {} lost", counters.produced, counters.delivered,
                        counters.lost());
    for (const auto& [name, value] : namedCounters(counters)) {
        const bool total = std::string_view(name) == "produced" || std::string_view(name) == "delivered";
        if (value > 0 && !total) {
            text += fmt::format(", {} {}", name, value);
        }
    }
    text += fmt::format("\n{:<10}  {:>10}  {:>10}\n", "time in us", "median", "99 %");
    text += fmt::format("{:<10}  {:>10.1f}  {:>10.1f}\n", "grab", grabTimes_.percentileUs(50.0),
                        grabTimes_.percentileUs(99.0));
    if (retrieveTimes_.count() > 0) {
        text += fmt::format("{:<10}  {:>10.1f}  {:>10.1f}\n", "retrieve", retrieveTimes_.percentileUs(50.0),
                            retrieveTimes_.percentileUs(99.0));
    }
    if (writer_ != nullptr) {
        text += fmt::format("{} pictures written to {}\n", writer_->written(), options_.directory);
    }
    writeOutput(text);
}

}  // namespace koruone
