#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "coding/av_pointers.hpp"
#include "coding/encoder_table.hpp"
#include "coding/video_codec.hpp"

namespace oru::coding {

/// Encoder of one image sequence without reordering. Threads: one at a time.
class VideoEncoder {
public:
    struct Settings {
        VideoCodec codec = VideoCodec::H264;
        CodecUse use = CodecUse::STREAMING;
        uint32_t width = 0;
        uint32_t height = 0;
        int fps = 0;               ///< at least 1
        int ticks_per_second = 0;  ///< unit of the images' pts
        uint32_t bitrate = 0;      ///< kbit/s; 0: by quality, and for the lossless codecs
        int gop_size = 0;          ///< frames between key frames; 1: every image is one
    };
    struct Coded {
        uint8_t* data;  ///< valid for the call
        std::size_t size;
        int64_t pts;
        bool key_frame;
    };
    /// Gets each coded image; false stops the encoding.
    using Output = std::function<bool(const Coded&)>;

    /// One encoder of encoders() that serves the settings. False: it is not available here or refuses them.
    [[nodiscard]] bool open(const Encoder& candidate, const Settings& wanted);
    /// Encodes one image of makeImage(); `output` gets what is complete, usually this one.
    /// False: the encoder failed and must be opened again, or the output stopped it.
    [[nodiscard]] bool encode(AVFrame& image, int64_t pts, bool keyFrame, const Output& output);
    /// Hands out what is still inside. Only open() may follow.
    [[nodiscard]] bool finish(const Output& output);
    /// Changes the target rate: at once where the encoder can, else by a restart, after which the next image is a key
    /// frame. False: the restart failed.
    [[nodiscard]] bool setBitrate(uint32_t kilobits);
    /// The target rate, kbit/s.
    [[nodiscard]] uint32_t bitrate() const { return settings.bitrate; }
    /// The encoder that was opened last; empty before.
    [[nodiscard]] const char* name() const { return encoder == nullptr ? "" : encoder->name; }
    /// Parameter sets or the codec's own header, of a recording; valid while open.
    [[nodiscard]] std::span<const uint8_t> extraData() const;

private:
    [[nodiscard]] bool start(const Encoder& candidate);
    void configure(AVCodecContext& fresh, const Encoder& candidate) const;
    [[nodiscard]] bool drain(const Output& output);

    Settings settings;
    const Encoder* encoder = nullptr;  // the last that opened
    AvPtr<AVCodecContext> context;
    AvPtr<AVPacket> packet;
};

}  // namespace oru::coding
