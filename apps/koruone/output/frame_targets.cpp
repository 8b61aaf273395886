#include "koruone/output/frame_targets.hpp"

#include <fmt/core.h>

#include "koruone/output/compression_names.hpp"
#include "koruone/output/packed_view.hpp"
#include "oru/VideoFile.hpp"

namespace koruone {
namespace {

std::string missingEncoder(oru::RLX_COMPRESSION_MODE mode) {
    return fmt::format("no encoder for {} is available", compressionName(mode));
}

class RecordingTarget final : public FrameTarget {
public:
    bool open(const std::string& path, oru::RecordedFile& source, const FrameFacts& facts) override {
        original = &source;
        const oru::ERROR_CODE code = recording.create(path, source, facts.mode);
        if (code != oru::SUCCESS) {
            failure = code == oru::RLX_CODEC_UNAVAILABLE ? missingEncoder(facts.mode)
                                                         : fmt::format("{} cannot be created", path);
        }
        return code == oru::SUCCESS;
    }

    bool write(const ConvertedFrame& frame) override {
        const bool written = recording.write(frame.image, *original) == oru::SUCCESS;
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
    oru::RecordedFile* original = nullptr;
    oru::RecordedFileWriter recording;
    std::string failure;
};

class VideoTarget final : public FrameTarget {
public:
    bool open(const std::string& path, oru::RecordedFile& source, const FrameFacts& facts) override {
        const oru::ERROR_CODE code = video.open(path, {facts.size, facts.fps, facts.mode, source.facts().bitrate});
        if (code == oru::INVALID_PARAMETER) {
            failure = fmt::format("an MP4 file holds h264 or h265, not {}", compressionName(facts.mode));
            return false;
        }
        if (code == oru::RLX_CODEC_UNAVAILABLE) {
            failure = missingEncoder(facts.mode);
            return false;
        }
        return take(code);
    }

    bool write(const ConvertedFrame& frame) override {
        if (frame.image.getDataType() == oru::U8_C2) {
            return take(video.write(frame.image));
        }
        if (packed.alloc({frame.image.getWidth(), frame.image.getHeight()}, oru::U8_C2, oru::CPU) != oru::SUCCESS) {
            failure = "there is not enough memory for an image";
            return false;
        }
        packView(frame.image, packed);
        return take(video.write(packed));
    }
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
    oru::Mat packed;
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
