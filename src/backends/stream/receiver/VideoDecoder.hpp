#pragma once

#include <cstdint>
#include <vector>

#include "backends/stream/wire/ffmpeg.hpp"
#include "backends/stream/wire/ts_demuxer.hpp"

namespace oru::stream {

/// Decoder of one image sequence without reordering. Threads: one at a time.
class VideoDecoder {
public:
    /// Bytes behind the coded image that the decoder may read.
    static constexpr std::size_t kPadding = AV_INPUT_BUFFER_PADDING_SIZE;

    [[nodiscard]] bool open(VideoCodec codec, uint32_t width, uint32_t height);
    void close();
    [[nodiscard]] VideoCodec codec() const { return openCodec; }
    /// Decodes one coded image, with kPadding readable bytes behind it. Null: it is damaged, of another size or
    /// format, or not complete. The result is valid until the next call.
    [[nodiscard]] const AVFrame* decode(uint8_t* data, std::size_t size, int64_t id);

private:
    VideoCodec openCodec = VideoCodec::NONE;
    int imageWidth = 0;
    int imageHeight = 0;
    AvPtr<AVCodecContext> context;
    AvPtr<AVPacket> packet;
    AvPtr<AVFrame> image;
};

}  // namespace oru::stream
