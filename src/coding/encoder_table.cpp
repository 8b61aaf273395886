#include "coding/encoder_table.hpp"

#include <array>

namespace oru::coding {
namespace {

constexpr std::array kEncoders = {
    Encoder{"h264_nvenc", VideoCodec::H264, false, true},   Encoder{"h264_v4l2m2m", VideoCodec::H264, true, false},
    Encoder{"libx264", VideoCodec::H264, false, true},      Encoder{"hevc_nvenc", VideoCodec::H265, false, true},
    Encoder{"hevc_v4l2m2m", VideoCodec::H265, true, false}, Encoder{"libx265", VideoCodec::H265, false, false},
    Encoder{"ffvhuff", VideoCodec::FFVHUFF, false, false},  Encoder{"ffv1", VideoCodec::FFV1, false, false},
};

using enum OptionUse;

// libx265 3.5 forgets buffers (0.2 MB at 1920x1200) at every closing when its loop filter (sao) is off, as its fastest
// presets have it.
constexpr std::array kOptions = {
    EncoderOption{"libx264", ALWAYS, "preset", "ultrafast"},
    EncoderOption{"libx264", ALWAYS, "tune", "zerolatency"},
    EncoderOption{"libx264", RECORDING_BY_QUALITY, "crf", "18"},
    EncoderOption{"libx264", STREAMING, "forced-idr", "1"},
    EncoderOption{"libx265", ALWAYS, "preset", "ultrafast"},
    EncoderOption{"libx265", ALWAYS, "tune", "zerolatency"},
    EncoderOption{"libx265", RECORDING_BY_QUALITY, "crf", "20"},
    EncoderOption{"libx265", RECORDING, "x265-params", "sao=1:log-level=none"},
    EncoderOption{"libx265", STREAMING, "x265-params", "frame-threads=1:repeat-headers=1:sao=1:log-level=error"},
    EncoderOption{"libx265", STREAMING, "forced-idr", "1"},
    EncoderOption{"h264_nvenc", ALWAYS, "tune", "ull"},
    EncoderOption{"h264_nvenc", ALWAYS, "delay", "0"},
    EncoderOption{"h264_nvenc", RECORDING, "preset", "p1"},
    EncoderOption{"h264_nvenc", RECORDING_BY_QUALITY, "rc", "constqp"},
    EncoderOption{"h264_nvenc", RECORDING_BY_QUALITY, "qp", "20"},
    EncoderOption{"h264_nvenc", STREAMING, "preset", "p2"},
    EncoderOption{"h264_nvenc", STREAMING, "zerolatency", "1"},
    EncoderOption{"h264_nvenc", STREAMING, "forced-idr", "1"},
    EncoderOption{"hevc_nvenc", ALWAYS, "tune", "ull"},
    EncoderOption{"hevc_nvenc", ALWAYS, "delay", "0"},
    EncoderOption{"hevc_nvenc", RECORDING, "preset", "p1"},
    EncoderOption{"hevc_nvenc", RECORDING_BY_QUALITY, "rc", "constqp"},
    EncoderOption{"hevc_nvenc", RECORDING_BY_QUALITY, "qp", "20"},
    EncoderOption{"hevc_nvenc", STREAMING, "preset", "p2"},
    EncoderOption{"hevc_nvenc", STREAMING, "zerolatency", "1"},
    EncoderOption{"hevc_nvenc", STREAMING, "forced-idr", "1"},
    EncoderOption{"ffv1", ALWAYS, "level", "3"},
    EncoderOption{"ffv1", ALWAYS, "coder", "rice"},
    EncoderOption{"ffv1", ALWAYS, "context", "0"},
    EncoderOption{"ffv1", ALWAYS, "slices", "4"},
    EncoderOption{"ffv1", ALWAYS, "slicecrc", "1"},
};

}  // namespace

std::span<const Encoder> encoders() {
    return kEncoders;
}

bool serves(const Encoder& encoder, VideoCodec codec, CodecUse use) {
    return encoder.codec == codec && (use == CodecUse::STREAMING || !encoder.streaming_only);
}

std::span<const EncoderOption> encoderOptions() {
    return kOptions;
}

}  // namespace oru::coding
