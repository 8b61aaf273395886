#include "koruone/runs/convert_run.hpp"

#include <fmt/core.h>

#include <filesystem>
#include <utility>

#include "koruone/output/EurocWriter.hpp"
#include "koruone/output/frame_targets.hpp"
#include "shared/interrupt.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

constexpr int kMostEmptyReads = 100;  // of a fifth of a second each

std::string endingOf(const std::string& path) {
    return std::filesystem::path(path).extension().string();
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
    if (!chooseTarget()) {
        return EXIT_USAGE;
    }
    if (!makeWay()) {
        return EXIT_FAILED;
    }
    const bool copied = target->open(options.output, recording, mode) && copyFrames() && target->finish();
    progress.clear();
    if (!copied) {
        complain("cannot convert {}: {}.", options.file, target->error());
        return EXIT_FAILED;
    }
    const oru::FrameCounters counters = recording.getFrameCounters();
    writeOutput(fmt::format("{}: {} frames, {} left out as damaged\n", options.output, loop.frames(), counters.lost()));
    return interrupted() ? EXIT_INTERRUPTED : EXIT_OK;
}

bool ConvertRun::openInput() {
    const oru::ERROR_CODE code = recording.open(options.file, options.follow);
    const oru::RECORDING_CONDITION condition = recording.condition();
    if (code == oru::SUCCESS && condition != oru::RECORDING_CONDITION::INTACT && !options.follow) {
        complain("{} {}; the {} frames that are there are converted.", options.file, oru::describe(condition),
                 recording.frameCount());
    }
    if (code == oru::RLX_FILE_UNREADABLE) {
        complain("{} {}{}.", options.file, oru::describe(condition),
                 oru::isRepairable(condition) ? fmt::format("; run 'koruone repair {}' first", options.file) : "");
    } else if (code == oru::RLX_CODEC_UNAVAILABLE) {
        complain("{} cannot be decoded on this machine.", options.file);
    } else if (code != oru::SUCCESS) {
        complain(code, "cannot open " + options.file, oru::KIND_RLX_FILE);
    }
    return code == oru::SUCCESS;
}

bool ConvertRun::chooseTarget() {
    const std::string ending = endingOf(options.output);
    const bool video = ending == ".mp4";
    const oru::RLX_COMPRESSION_MODE recorded = recording.facts().compression_mode;
    const bool needsOther = video && recorded != oru::RLX_H264 && recorded != oru::RLX_H265;
    mode = options.compression.value_or(needsOther ? oru::RLX_H264 : recorded);
    if (ending == ".rlx" || ending == ".rlx2" || ending == ".mkv") {
        target = makeRecordingTarget();
    } else if (video) {
        target = makeVideoTarget();
    } else if (ending.empty()) {
        target = std::make_unique<EurocWriter>();
    } else {
        complain("'{}' is no ending that can be written; use .rlx2, .rlx, .mkv, .mp4 or a directory.", ending);
    }
    return target != nullptr;
}

bool ConvertRun::makeWay() {
    std::error_code error;
    const std::filesystem::path output = options.output;
    const bool taken = std::filesystem::is_directory(output, error) ? !std::filesystem::is_empty(output, error)
                                                                    : std::filesystem::exists(output, error);
    if (taken && std::filesystem::equivalent(options.file, output, error)) {
        complain("{} cannot be converted onto itself.", options.file);
        return false;
    }
    if (taken && !options.overwrite) {
        complain("{} exists; use --overwrite to replace it.", options.output);
        return false;
    }
    return true;
}

oru::ERROR_CODE ConvertRun::readFrame() {
    const oru::ERROR_CODE code = recording.readFrame(image);
    if (code != oru::CAMERA_NOT_READY) {
        emptyReads = 0;
        return code;
    }
    return ++emptyReads < kMostEmptyReads ? code : oru::FAILURE;
}

bool ConvertRun::copyFrames() {
    bool written = true;
    const auto uses = [&] {
        written = target->write(image, recording);
        progress.show(fmt::format("{}/{} frames", recording.position(), recording.frameCount()));
        return written;
    };
    return loop.run([] { return true; }, uses) && written;
}

}  // namespace koruone
