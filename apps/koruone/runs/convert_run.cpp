#include "koruone/runs/convert_run.hpp"

#include <fmt/core.h>

#include <filesystem>
#include <utility>

#include "collaborators/CollaboratorFactory.hpp"
#include "koruone/output/EurocWriter.hpp"
#include "koruone/output/VideoFile.hpp"
#include "koruone/runs/record_run.hpp"
#include "shared/interrupt.hpp"
#include "shared/report.hpp"

namespace koruone {
namespace {

using oru::CollaboratorFactory;
namespace rlx = oru::rlx;
namespace rlxrw = oru::rlxrw;

constexpr int kMostEmptyReads = 100;  // of a fifth of a second each

/// Writes another recording, with every fact of the frame.
class RecordingTarget final : public FrameTarget {
public:
    bool open(const std::string& path, const rlxrw::RlxRecordingHeader& facts) override {
        recorder = CollaboratorFactory::processDefault()->makeRlxVideo(CollaboratorFactory::RlxRole::recorder);
        const int result = recorder->create(path.c_str(), facts);
        if (result != 0) {
            failure = result == 2
                          ? fmt::format("no encoder for {} is available", compressionName(facts.compression_mode))
                          : fmt::format("{} cannot be created", path);
        }
        return result == 0;
    }

    bool write(const ConvertedFrame& frame) override {
        const std::vector<oru::IMUPacket> packets = frame.source->getFrameIMUPackets();
        oru::IMUPacket imu;
        rlxrw::RlxFrame record;
        record.pixels = frame.pixels;
        record.size = frame.size;
        record.time = frame.time;
        record.imu = frame.source->getFrameIMU(imu) ? &imu : nullptr;
        (void)frame.source->getCurrentMetadata(record.metadata);
        record.packets = packets.data();
        record.packet_count = packets.size();
        const bool written = recorder->writeFrame(record) == 0;
        if (!written) {
            failure = "the recording cannot grow, the disk may be full";
        }
        return written;
    }

    bool finish() override {
        recorder->close();
        return true;
    }
    const std::string& error() const override { return failure; }

private:
    std::unique_ptr<rlxrw::RLXVideo> recorder;
    std::string failure;
};

std::string endingOf(const std::string& path) {
    return std::filesystem::path(path).extension().string();
}

}  // namespace

ConvertRun::ConvertRun(ConvertOptions given) : options(std::move(given)) {}

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
    const bool copied = target->open(options.output, header.facts) && copyFrames() && target->finish();
    progress.clear();
    if (!copied) {
        complain("cannot convert {}: {}.", options.file, target->error());
        return EXIT_FAILED;
    }
    const oru::FrameCounters counters = reader->counters();
    writeOutput(fmt::format("{}: {} frames, {} left out as damaged\n", options.output, frameCount, counters.lost()));
    return interrupted() ? EXIT_INTERRUPTED : EXIT_OK;
}

bool ConvertRun::openInput() {
    {
        const rlx::OpenedFile recording = rlx::openRecording(options.file, false);
        std::vector<rlx::IndexEntry> entries;
        rlx::Condition condition = recording.condition;
        condition = condition == rlx::Condition::INTACT ? rlx::loadIndex(recording, entries) : condition;
        if (condition != rlx::Condition::INTACT) {
            complain("{} {}{}.", options.file, rlx::describe(condition),
                     rlx::isRepairable(condition) ? fmt::format("; run 'koruone repair {}' first", options.file) : "");
            return false;
        }
        header = recording.header;
    }
    reader = CollaboratorFactory::processDefault()->makeRlxVideo(CollaboratorFactory::RlxRole::reader);
    if (reader->open(options.file.c_str()) != 0) {
        complain("{} cannot be decoded on this machine.", options.file);
        return false;
    }
    return true;
}

bool ConvertRun::chooseTarget() {
    const std::string ending = endingOf(options.output);
    const bool video = ending == ".mp4";
    const oru::RLX_COMPRESSION_MODE recorded = header.facts.compression_mode;
    const bool needsOther = video && recorded != oru::RLX_H264 && recorded != oru::RLX_H265;
    header.facts.compression_mode = options.compression.value_or(needsOther ? oru::RLX_H264 : recorded);
    header.facts.version = ending == ".rlx" ? 1 : 2;
    if (ending == ".rlx" || ending == ".rlx2" || ending == ".mkv") {
        target = std::make_unique<RecordingTarget>();
    } else if (video) {
        target = std::make_unique<VideoFile>();
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

bool ConvertRun::copyFrames() {
    std::vector<unsigned char> pixels(std::size_t{header.facts.width} * header.facts.height * 2);
    const int total = reader->frameCount();
    int emptyReads = 0;
    while (!interrupted()) {
        ConvertedFrame frame{pixels.data(), pixels.size(), 0, reader.get()};
        const oru::FrameStatus status = reader->readFrame(pixels.data(), pixels.size(), frame.time);
        if (status == oru::INPUT_ENDED) {
            return true;
        }
        if (status == oru::NO_FRAME && ++emptyReads < kMostEmptyReads) {
            continue;
        }
        if (status != oru::NEW_FRAME || !target->write(frame)) {
            return false;
        }
        emptyReads = 0;
        ++frameCount;
        progress.show(fmt::format("{}/{} frames", reader->position(), total));
    }
    return true;
}

}  // namespace koruone
