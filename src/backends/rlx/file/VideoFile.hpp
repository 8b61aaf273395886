#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "backends/rlx/file/codec.hpp"
#include "collaborators/RecordingTools.hpp"

struct AVFormatContext;
struct AVPacket;

namespace oru::rlx {

/// An MP4 file with one H.264 or H.265 track, for players; times in microseconds from the first frame. No samples.
class VideoFile final : public VideoWriter {
public:
    VideoFile();
    ~VideoFile() override;

    ERROR_CODE open(const std::string& path, const rlxrw::RlxRecordingHeader& facts) override;
    bool write(const unsigned char* pixels, Timestamp time) override;
    bool finish() override;
    const std::string& error() const override { return failure; }

private:
    bool openMuxer(const rlxrw::RlxRecordingHeader& facts);
    bool writeImage(const CodedImage& image);
    bool fail(std::string reason);

    struct CloseMuxer {
        void operator()(AVFormatContext* context) const;
    };
    struct FreePacket {
        void operator()(AVPacket* used) const;
    };

    std::string filePath;
    std::unique_ptr<ImageEncoder> imageEncoder;
    std::unique_ptr<AVFormatContext, CloseMuxer> muxer;
    std::unique_ptr<AVPacket, FreePacket> packet;
    CodedSink sink;
    std::vector<int64_t> timesUs;  // of the frames that the encoder may still hold, by number
    uint64_t frameCount = 0;
    Timestamp firstTime = 0;
    int64_t lastTimeUs = -1;
    std::string failure;
};

}  // namespace oru::rlx
