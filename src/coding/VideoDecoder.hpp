#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "coding/av_pointers.hpp"
#include "coding/video_codec.hpp"

namespace oru::coding {

/// Decoder of one image sequence without reordering. Trusts nothing that the coded images say: what comes out has the
/// size that was asked for and a format that planarToPacked() takes, or does not come out. Threads: one at a time.
class VideoDecoder {
public:
    /// Bytes behind the coded image that the decoder may read.
    static constexpr std::size_t kPaddingBytes = 64;

    struct Settings {
        VideoCodec codec = VideoCodec::NONE;
        CodecUse use = CodecUse::STREAMING;
        uint32_t width = 0;
        uint32_t height = 0;
        std::span<const uint8_t> extra_data;  ///< borrowed for open()
    };

    [[nodiscard]] bool open(const Settings& wanted);
    void close();
    /// NONE while closed.
    [[nodiscard]] VideoCodec codec() const { return settings.codec; }
    /// Decodes one coded image, with kPaddingBytes readable bytes behind it. Null: it is damaged, of another size or
    /// format, or not complete; close() or reset() and go on with a key image. The result is valid until the next call.
    [[nodiscard]] const AVFrame* decode(uint8_t* data, std::size_t size);
    /// Forgets the images before, for a jump within the sequence.
    void reset();

private:
    [[nodiscard]] bool configure(AVCodecContext& fresh) const;
    [[nodiscard]] bool isAsWanted(const AVFrame& decoded) const;

    Settings settings;
    int64_t lastNumber = 0;
    AvPtr<AVCodecContext> context;
    AvPtr<AVPacket> packet;
    AvPtr<AVFrame> image;
};

}  // namespace oru::coding
