#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "backends/stream/wire/ffmpeg.hpp"
#include "backends/stream/wire/ts_demuxer.hpp"

namespace oru::stream {

/// Encoder of one image sequence in 4:2:0, without reordering: hardware encoders by name first, then the software one
/// of the same codec; never another codec. Threads: one at a time.
class VideoEncoder {
public:
    struct Settings {
        VideoCodec codec = VideoCodec::H264;
        uint32_t width = 0;
        uint32_t height = 0;
        int fps = 0;
        uint32_t bitrate = 0;  ///< kbit/s
        int gop_size = 0;      ///< frames between key frames
    };
    struct Coded {
        uint8_t* data;
        std::size_t size;
        int64_t pts;
        bool key_frame;
    };
    using Output = std::function<void(const Coded&)>;

    /// Takes the first encoder that opens. False: none does.
    [[nodiscard]] bool open(const Settings& settings);
    /// Encodes one image in 4:2:0 whose pts is set; `output` gets what is complete, usually this one.
    /// False: the encoder failed and must be opened again.
    [[nodiscard]] bool encode(AVFrame& image, bool key_frame, const Output& output);
    /// Changes the target rate: at once where the encoder can, else by a restart, after which the next image is a key
    /// frame. False: the restart failed.
    [[nodiscard]] bool setBitrate(uint32_t kilobits);
    [[nodiscard]] const char* name() const;

private:
    [[nodiscard]] bool tryOpen(const char* name);
    void setRate(uint32_t kilobits);

    Settings wanted;
    std::string chosen;
    AvPtr<AVCodecContext> codecContext;
    AvPtr<AVPacket> packet;
};

/// An image buffer for the encoder; null when there is no memory.
AvPtr<AVFrame> makeImage(uint32_t width, uint32_t height);

}  // namespace oru::stream
