#include "koruone/output/frame_targets.hpp"

#include <fmt/core.h>

#include "koruone/output/compression_names.hpp"
#include "oru/VideoFile.hpp"

namespace koruone {
namespace {

std::string missingEncoder(oru::RLX_COMPRESSION_MODE mode) {
    return fmt::format("no encoder for {} is available", compressionName(mode));
}

class RecordingTarget final : public FrameTarget {
public:
    bool open(const std::string& path, const oru::RecordedFile& source, oru::RLX_COMPRESSION_MODE mode) override {
        const oru::ERROR_CODE code = recording.create(path, source, mode);
        if (code != oru::SUCCESS) {
            failure =
                code == oru::RLX_CODEC_UNAVAILABLE ? missingEncoder(mode) : fmt::format("{} cannot be created", path);
        }
        return code == oru::SUCCESS;
    }

    bool write(const oru::Mat& image, oru::RecordedFile& source) override {
        const bool written = recording.write(image, source) == oru::SUCCESS;
        if (!written) {
            failure = "the recording cannot grow, the disk may be full";
        }
        return written;
    }

    bool finish() override {
        recording.close();
        return true;
    }
    const std::string& error() const override { return failure; }

private:
    oru::RecordedFileWriter recording;
    std::string failure;
};

class VideoTarget final : public FrameTarget {
public:
    bool open(const std::string& path, const oru::RecordedFile& source, oru::RLX_COMPRESSION_MODE mode) override {
        const oru::RecordingFacts& facts = source.facts();
        const oru::ERROR_CODE code = video.open(path, {facts.size, facts.fps, mode, facts.bitrate});
        if (code == oru::INVALID_PARAMETER) {
            failure = fmt::format("an MP4 file holds h264 or h265, not {}", compressionName(mode));
            return false;
        }
        if (code == oru::RLX_CODEC_UNAVAILABLE) {
            failure = missingEncoder(mode);
            return false;
        }
        return take(code);
    }

    bool write(const oru::Mat& image, oru::RecordedFile& /*source*/) override { return take(video.write(image)); }
    bool finish() override { return take(video.close()); }
    const std::string& error() const override { return failure; }

private:
    bool take(oru::ERROR_CODE code) {
        if (code != oru::SUCCESS) {
            failure = video.error().get();
        }
        return code == oru::SUCCESS;
    }

    oru::VideoFileWriter video;
    std::string failure;
};

}  // namespace

std::unique_ptr<FrameTarget> makeRecordingTarget() {
    return std::make_unique<RecordingTarget>();
}

std::unique_ptr<FrameTarget> makeVideoTarget() {
    return std::make_unique<VideoTarget>();
}

}  // namespace koruone
