#include "koruone/runs/convert_run.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <utility>

#include "koruone/camera/open_camera.hpp"
#include "koruone/output/EurocWriter.hpp"
#include "koruone/output/PictureWriter.hpp"
#include "koruone/output/frame_targets.hpp"
#include "oru/calibration.hpp"
#include "shared/interrupt.hpp"
#include "shared/json_output.hpp"
#include "shared/recording_advice.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

constexpr int kMostEmptyReads = 100;  // of a fifth of a second each

/// The largest size within `limit` with the form of `image`, of even sides, and never larger than the image.
oru::Resolution fitted(const oru::Resolution& image, const oru::Resolution& limit) {
    if (limit.area() == 0) {
        return image;
    }
    const double scale = std::min({1.0, static_cast<double>(limit.width) / static_cast<double>(image.width),
                                   static_cast<double>(limit.height) / static_cast<double>(image.height)});
    const auto even = [scale](uint64_t side) {
        return std::max<uint64_t>(2, static_cast<uint64_t>(std::lround(static_cast<double>(side) * scale / 2.0)) * 2);
    };
    return {even(image.width), even(image.height)};
}

/// What the recording's own calibration says of its images.
oru::CameraParameters recordedLens(const oru::RecordingFacts& facts) {
    oru::CameraParameters lens;
    const oru::SensorMode* mode =
        oru::findMode(facts.model, static_cast<int>(facts.size.width), static_cast<int>(facts.size.height));
    const oru::CalibrationFile calibration = oru::parseCalibration(facts.calibration_text.get());
    const auto found = mode == nullptr ? std::nullopt : calibration.lens(*mode);
    if (found) {
        lens.fx = static_cast<float>(found->fx);
        lens.fy = static_cast<float>(found->fy);
        lens.cx = static_cast<float>(found->cx);
        lens.cy = static_cast<float>(found->cy);
        lens.distortion = found->distortion;
        lens.image_size = facts.size;
    }
    if (found && facts.flipped) {
        lens.cx = static_cast<float>(facts.size.width) - lens.cx;
        lens.cy = static_cast<float>(facts.size.height) - lens.cy;
    }
    return lens;
}

oru::VIEW grayOf(oru::VIEW view) {
    return view == oru::RECTIFIED ? oru::RECTIFIED_GRAY : view == oru::UNRECTIFIED ? oru::UNRECTIFIED_GRAY : view;
}

}  // namespace

ConvertRun::ConvertRun(ConvertOptions given)
    : options(std::move(given)),
      loop([this] { return readFrame(); }, oru::KIND_RLX_FILE, &progress, {std::chrono::nanoseconds::max(), "", true}) {
}

ExitStatus ConvertRun::run() {
    const InterruptGuard guard;
    if (!openInput()) {
        return EXIT_FAILED;
    }
    for (const auto step : {&ConvertRun::chooseTarget, &ConvertRun::chooseFrames, &ConvertRun::openViews}) {
        if (const ExitStatus done = (this->*step)(); done != EXIT_OK) {
            return done;
        }
    }
    describeCamera();
    if (!makeWay()) {
        return EXIT_FAILED;
    }
    const bool copied = target->open(options.output, recording, facts) && copyFrames() && target->finish();
    progress.clear();
    if (!copied) {
        complain("cannot convert {}: {}.", options.input.file,
                 target->error().empty() ? "a frame cannot be read; see 'koruone verify'" : target->error());
        return EXIT_FAILED;
    }
    print();
    return interrupted() ? EXIT_INTERRUPTED : EXIT_OK;
}

bool ConvertRun::openInput() {
    const std::string& file = options.input.file;
    const oru::ERROR_CODE code = recording.open(file, options.input.follow);
    const oru::RECORDING_CONDITION condition = recording.condition();
    if (code == oru::SUCCESS && condition != oru::RECORDING_CONDITION::INTACT && !options.input.follow) {
        complain("{} {}; the {} frames that are there are converted.", file, oru::describe(condition),
                 recording.frameCount());
    }
    if (code == oru::RLX_FILE_UNREADABLE) {
        complainOfRecording(recording.condition(), file);
    } else if (code != oru::SUCCESS) {
        complain(code, "cannot convert " + file, Subject::RECORDING, "");
    }
    return code == oru::SUCCESS;
}

ExitStatus ConvertRun::chooseTarget() {
    const std::string ending = std::filesystem::path(options.output).extension().string();
    const bool video = ending == ".mp4";
    const bool recorded = ending == ".rlx" || ending == ".rlx2" || ending == ".mkv";
    const bool directory = ending.empty();
    if (!video && !recorded && !directory) {
        complain("'{}' is no ending that can be written; use .rlx2, .rlx, .mkv, .mp4 or a directory.", ending);
        return EXIT_USAGE;
    }
    view = options.view;
    if (!view && !recorded && (options.size.area() != 0 || options.color || options.pictures)) {
        view = oru::UNRECTIFIED;
    }
    const char* ignored = recorded && options.view ? "--view" : recorded && options.size.area() != 0 ? "--size" : "";
    ignored = options.pictures && !directory ? "--pictures" : options.color && !directory ? "--color" : ignored;
    ignored = options.compression && directory ? "--compression" : ignored;
    if (*ignored != '\0') {
        complain("{} does not go with {}; see 'koruone convert --help'.", ignored, options.output);
        return EXIT_USAGE;
    }
    const bool grayByItself = directory && !options.pictures;
    if (view && grayByItself && !options.color && !options.view) {
        view = grayOf(*view);
    }
    form = recorded ? "recording" : video ? "video" : options.pictures ? "pictures" : "euroc";
    if (recorded) {
        target = makeRecordingTarget();
    } else if (video) {
        target = makeVideoTarget();
    } else if (options.pictures) {
        target = std::make_unique<PictureWriter>(*options.pictures);
    } else {
        target = std::make_unique<EurocWriter>();
    }
    const oru::RLX_COMPRESSION_MODE mode = recording.facts().compression_mode;
    const bool needsOther = video && mode != oru::RLX_H264 && mode != oru::RLX_H265;
    facts.mode = options.compression.value_or(needsOther ? oru::RLX_H264 : mode);
    return EXIT_OK;
}

ExitStatus ConvertRun::chooseFrames() {
    firstFrame = options.from ? firstFrameAt(recording, *options.from) : 0;
    lastFrame = options.to ? lastFrameAt(recording, *options.to) : recording.frameCount() - 1;
    if (firstFrame > lastFrame) {
        complain(
            "{} has {} in {}; there is none from --from to --to.", options.input.file,
            counted(static_cast<uint64_t>(recording.frameCount()), "frame"),
            timeText(static_cast<double>(recording.frameTime(recording.frameCount() - 1) - recording.frameTime(0)) /
                     1e9));
        return EXIT_USAGE;
    }
    if (options.input.follow && !options.to) {
        lastFrame = std::numeric_limits<int>::max();  // who follows takes what comes
    }
    const float sourceFps = recording.facts().fps;
    const auto wanted = static_cast<float>(options.fps);
    facts.fps = wanted > 0.0F && (wanted < sourceFps || sourceFps <= 0.0F) ? wanted : sourceFps;
    rate.emplace(options.fps, static_cast<double>(sourceFps));
    samplesFrom = firstFrame;
    recording.setPosition(firstFrame);
    return EXIT_OK;
}

ExitStatus ConvertRun::openViews() {
    facts.overwrite = options.overwrite;
    facts.size = recording.facts().size;
    if (!drawsViews()) {
        return EXIT_OK;
    }
    if (const ExitStatus opened = openCamera(player, options.input); opened != EXIT_OK) {
        return opened;
    }
    facts.size = fitted(facts.size, options.size);
    if (const oru::ERROR_CODE code = player.setRLXPosition(firstFrame); code != oru::SUCCESS) {
        complain(code, fmt::format("cannot go to frame {} of {}", firstFrame, options.input.file), Subject::RECORDING,
                 "");
        return EXIT_FAILED;
    }
    return EXIT_OK;
}

void ConvertRun::describeCamera() {
    oru::CameraOne asked;
    oru::CameraOne* camera = drawsViews() ? &player : &asked;
    if (!drawsViews() && std::string_view(form) == "euroc") {
        // What is not known without a calibration is left out.
        (void)asked.open(initParameters(options.input));
    }
    if (camera->isOpened()) {
        const oru::CameraDescription description = camera->getCameraInformation(facts.size);
        const bool rectified = view == oru::RECTIFIED || view == oru::RECTIFIED_GRAY;
        facts.lens = rectified ? description.configuration.calibration : description.configuration.raw_calibration;
        facts.accelerometer = description.sensors.accelerometer;
        facts.gyroscope = description.sensors.gyroscope;
    }
    if (!drawsViews()) {
        facts.lens = recordedLens(recording.facts());
    }
}

bool ConvertRun::makeWay() {
    std::error_code error;
    const std::filesystem::path output = options.output;
    const bool taken = std::filesystem::is_directory(output, error) ? !std::filesystem::is_empty(output, error)
                                                                    : std::filesystem::exists(output, error);
    if (taken && std::filesystem::equivalent(options.input.file, output, error)) {
        complain("{} cannot be converted onto itself.", options.input.file);
        return false;
    }
    if (taken && !options.overwrite) {
        complain("{} exists; use --overwrite to replace it.", options.output);
        return false;
    }
    return true;
}

int ConvertRun::position() {
    return drawsViews() ? player.getRLXPosition() : recording.position();
}

oru::ERROR_CODE ConvertRun::readFrame() {
    if (position() > lastFrame) {
        return oru::END_OF_INPUT;
    }
    const oru::ERROR_CODE code = drawsViews() ? readView() : recording.readFrame(image);
    if (code == oru::CAMERA_NOT_READY) {
        return ++emptyReads < kMostEmptyReads ? code : oru::FAILURE;
    }
    emptyReads = 0;
    // Where the last frame of the part is damaged the reader has gone beyond it.
    return code == oru::SUCCESS && position() - 1 > lastFrame ? oru::END_OF_INPUT : code;
}

oru::ERROR_CODE ConvertRun::readView() {
    if (const oru::ERROR_CODE code = player.grab(); code != oru::SUCCESS) {
        return code;
    }
    const oru::ERROR_CODE code = player.retrieveImage(image, *view, oru::CPU, facts.size);
    image.timestamp = player.getTimestamp(oru::IMAGE);
    return code;
}

std::vector<oru::RecordedSample> ConvertRun::samplesUpTo(int frame) {
    std::vector<oru::RecordedSample> samples;
    for (; samplesFrom <= frame; ++samplesFrom) {
        const std::vector<oru::RecordedSample> more = recording.samplesOf(samplesFrom);
        samples.insert(samples.end(), more.begin(), more.end());
    }
    return samples;
}

bool ConvertRun::useFrame() {
    const int frame = position() - 1;
    if (rate->takes(image.timestamp)) {
        const bool withSamples = std::string_view(form) == "euroc";
        written = target->write({image, withSamples ? samplesUpTo(frame) : std::vector<oru::RecordedSample>{}});
        framesWritten += written ? 1 : 0;
    }
    const auto done = static_cast<uint64_t>(frame - firstFrame + 1);
    const int last = std::min(lastFrame, recording.frameCount() - 1);
    progress.show(done, static_cast<uint64_t>(std::max(last - firstFrame + 1, 1)),
                  fmt::format("{} frames", framesWritten));
    return written;
}

bool ConvertRun::copyFrames() {
    return loop.run([] { return true; }, [this] { return useFrame(); }) && written;
}

void ConvertRun::print() const {
    const uint64_t lost = (drawsViews() ? player.getFrameCounters() : recording.getFrameCounters()).lost();
    if (options.json) {
        writeJsonLine({{"output", options.output},
                       {"form", form},
                       {"frames", framesWritten},
                       {"damaged", lost},
                       {"width", facts.size.width},
                       {"height", facts.size.height}});
        return;
    }
    writeOutput(fmt::format("{}: {} frames, {} left out as damaged\n", options.output, framesWritten, lost));
}

}  // namespace koruone
