#include "convert_run.hpp"

#include <fmt/core.h>

#include <filesystem>
#include <utility>

#include "collaborators/CollaboratorFactory.hpp"
#include "euroc_writer.hpp"
#include "interrupt.hpp"
#include "record_run.hpp"
#include "report.hpp"
#include "video_file.hpp"

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
        recorder_ = CollaboratorFactory::processDefault()->makeRlxVideo(CollaboratorFactory::RlxRole::recorder);
        const int result = recorder_->create(path.c_str(), facts);
        if (result != 0) {
            error_ = result == 2
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
        const bool written = recorder_->writeFrame(record) == 0;
        if (!written) {
            error_ = "the recording cannot grow, the disk may be full";
        }
        return written;
    }

    bool finish() override {
        recorder_->close();
        return true;
    }
    const std::string& error() const override { return error_; }

private:
    std::unique_ptr<rlxrw::RLXVideo> recorder_;
    std::string error_;
};

std::string endingOf(const std::string& path) {
    return std::filesystem::path(path).extension().string();
}

}  // namespace

ConvertRun::ConvertRun(ConvertOptions options) : options_(std::move(options)) {}

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
    const bool copied = target_->open(options_.output, header_.facts) && copyFrames() && target_->finish();
    progress_.clear();
    if (!copied) {
        complain("cannot convert {}: {}.", options_.file, target_->error());
        return EXIT_FAILED;
    }
    const oru::FrameCounters counters = reader_->counters();
    writeOutput(fmt::format("{}: {} frames, {} left out as damaged\n", options_.output, frames_, counters.lost()));
    return interrupted() ? EXIT_INTERRUPTED : EXIT_OK;
}

bool ConvertRun::openInput() {
    {
        const rlx::OpenedFile recording = rlx::openRecording(options_.file, false);
        std::vector<rlx::IndexEntry> entries;
        rlx::Condition condition = recording.condition;
        condition = condition == rlx::Condition::INTACT ? rlx::loadIndex(recording, entries) : condition;
        if (condition != rlx::Condition::INTACT) {
            complain("{} {}{}.", options_.file, rlx::describe(condition),
                     rlx::isRepairable(condition) ? fmt::format("; run 'koruone repair {}' first", options_.file) : "");
            return false;
        }
        header_ = recording.header;
    }
    reader_ = CollaboratorFactory::processDefault()->makeRlxVideo(CollaboratorFactory::RlxRole::reader);
    if (reader_->open(options_.file.c_str()) != 0) {
        complain("{} cannot be decoded on this machine.", options_.file);
        return false;
    }
    return true;
}

bool ConvertRun::chooseTarget() {
    const std::string ending = endingOf(options_.output);
    const bool video = ending == ".mp4";
    const oru::RLX_COMPRESSION_MODE recorded = header_.facts.compression_mode;
    const bool needs_other = video && recorded != oru::RLX_H264 && recorded != oru::RLX_H265;
    header_.facts.compression_mode = options_.compression.value_or(needs_other ? oru::RLX_H264 : recorded);
    header_.facts.version = ending == ".rlx" ? 1 : 2;
    if (ending == ".rlx" || ending == ".rlx2" || ending == ".mkv") {
        target_ = std::make_unique<RecordingTarget>();
    } else if (video) {
        target_ = std::make_unique<VideoFile>();
    } else if (ending.empty()) {
        target_ = std::make_unique<EurocWriter>();
    } else {
        complain("'{}' is no ending that can be written; use .rlx2, .rlx, .mkv, .mp4 or a directory.", ending);
    }
    return target_ != nullptr;
}

bool ConvertRun::makeWay() {
    std::error_code error;
    const std::filesystem::path output = options_.output;
    const bool taken = std::filesystem::is_directory(output, error) ? !std::filesystem::is_empty(output, error)
                                                                    : std::filesystem::exists(output, error);
    if (taken && std::filesystem::equivalent(options_.file, output, error)) {
        complain("{} cannot be converted onto itself.", options_.file);
        return false;
    }
    if (taken && !options_.overwrite) {
        complain("{} exists; use --overwrite to replace it.", options_.output);
        return false;
    }
    return true;
}

bool ConvertRun::copyFrames() {
    std::vector<unsigned char> pixels(std::size_t{header_.facts.width} * header_.facts.height * 2);
    const int total = reader_->frameCount();
    int empty_reads = 0;
    while (!interrupted()) {
        ConvertedFrame frame{pixels.data(), pixels.size(), 0, reader_.get()};
        const oru::FrameStatus status = reader_->readFrame(pixels.data(), pixels.size(), frame.time);
        if (status == oru::INPUT_ENDED) {
            return true;
        }
        if (status == oru::NO_FRAME && ++empty_reads < kMostEmptyReads) {
            continue;
        }
        if (status != oru::NEW_FRAME || !target_->write(frame)) {
            return false;
        }
        empty_reads = 0;
        ++frames_;
        progress_.show(fmt::format("{}/{} frames", reader_->position(), total));
    }
    return true;
}

}  // namespace koruone
