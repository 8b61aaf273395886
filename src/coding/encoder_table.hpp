#pragma once

#include <cstdint>
#include <span>

#include "coding/video_codec.hpp"

namespace oru::coding {

/// One encoder of the coding library.
struct Encoder {
    const char* name;
    VideoCodec codec;
    bool streaming_only;   ///< gives no parameter sets apart from its images
    bool adjusts_bitrate;  ///< takes another bitrate while it is open
};

/// The encoders in use, those of one codec in the order in which they are to be tried: hardware before software.
[[nodiscard]] std::span<const Encoder> encoders();
[[nodiscard]] bool serves(const Encoder& encoder, VideoCodec codec, CodecUse use);

/// Where an option holds; a recording by quality is one without a bitrate.
enum class OptionUse : uint8_t { ALWAYS, RECORDING, RECORDING_BY_QUALITY, STREAMING };

/// One setting of one encoder, by the names that the coding library has for them.
struct EncoderOption {
    const char* encoder;
    OptionUse use;
    const char* key;
    const char* value;
};
[[nodiscard]] std::span<const EncoderOption> encoderOptions();

}  // namespace oru::coding
