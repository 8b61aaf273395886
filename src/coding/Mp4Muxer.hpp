#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "coding/av_pointers.hpp"
#include "utils/bytes.hpp"

namespace oru::coding {

/// Puts coded images into an MP4 file with one H.264 or H.265 track. After a false result error() says why.
/// Threads: one at a time.
class Mp4Muxer {
public:
    struct Track {
        bool h265 = false;  ///< else H.264
        uint32_t width = 0;
        uint32_t height = 0;
        ByteView configuration;  ///< the decoder configuration record, ISO/IEC 14496-15
    };

    Mp4Muxer();
    ~Mp4Muxer();
    Mp4Muxer(const Mp4Muxer&) = delete;
    Mp4Muxer& operator=(const Mp4Muxer&) = delete;

    [[nodiscard]] bool open(const std::string& path, const Track& track);
    /// An image whose units have lengths before them; times rise from image to image.
    [[nodiscard]] bool write(ByteView image, bool key, int64_t timeUs);
    [[nodiscard]] bool finish();
    [[nodiscard]] const std::string& error() const { return failure; }

private:
    struct CloseOutput {
        void operator()(AVFormatContext* output) const;
    };

    bool describeTrack(const Track& track);
    bool fail(std::string reason);

    std::string filePath;
    std::unique_ptr<AVFormatContext, CloseOutput> output;
    AvPtr<AVPacket> packet;
    std::string failure;
};

}  // namespace oru::coding
