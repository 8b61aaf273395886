#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "backends/rlx/codec.hpp"
#include "convert_run.hpp"

struct AVFormatContext;
struct AVPacket;

namespace koruone {

/// An MP4 file with one H.264 or H.265 track, for players; times in microseconds from the first frame. No samples.
class VideoFile final : public FrameTarget {
public:
    VideoFile();
    ~VideoFile() override;

    bool open(const std::string& path, const oru::rlxrw::RlxRecordingHeader& facts) override;
    bool write(const ConvertedFrame& frame) override;
    bool finish() override;
    const std::string& error() const override { return error_; }

private:
    bool openMuxer(const oru::rlxrw::RlxRecordingHeader& facts);
    bool writePicture(const oru::rlx::CodedPicture& picture);
    bool fail(std::string reason);

    struct CloseMuxer {
        void operator()(AVFormatContext* context) const;
    };
    struct FreePacket {
        void operator()(AVPacket* packet) const;
    };

    std::string path_;
    std::unique_ptr<oru::rlx::PictureEncoder> encoder_;
    std::unique_ptr<AVFormatContext, CloseMuxer> muxer_;
    std::unique_ptr<AVPacket, FreePacket> packet_;
    oru::rlx::CodedSink sink_;
    std::vector<int64_t> times_us_;  // of the frames that the encoder may still hold, by number
    uint64_t frames_ = 0;
    oru::Timestamp first_time_ = 0;
    int64_t last_time_us_ = -1;
    std::string error_;
};

}  // namespace koruone
