#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <memory>
#include <span>

#include "backends/rlx/file/codec.hpp"

namespace oru::rlx {

struct FreeContext {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FreeFrame {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct FreePacket {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using Context = std::unique_ptr<AVCodecContext, FreeContext>;
using Frame = std::unique_ptr<AVFrame, FreeFrame>;
using Packet = std::unique_ptr<AVPacket, FreePacket>;

[[nodiscard]] inline std::size_t stepOf(const AVFrame& frame, int plane) {
    return static_cast<std::size_t>(frame.linesize[plane]);
}

/// How a mode is coded: the encoders to try, in order.
struct ModeCodec {
    AVCodecID decoder = AV_CODEC_ID_NONE;
    AVPixelFormat format = AV_PIX_FMT_NONE;
    std::span<const char* const> encoders;
};
/// decoder AV_CODEC_ID_NONE for a mode without one, RLX_RAW included.
[[nodiscard]] ModeCodec modeCodec(RLX_COMPRESSION_MODE mode);

/// The BITMAPINFOHEADER (40 bytes, little-endian) that a V_MS/VFW/FOURCC track carries, and the coder's own bytes.
[[nodiscard]] Bytes bitmapHeader(uint32_t width, uint32_t height, uint32_t fourcc, ByteView extra);
inline constexpr std::size_t kBitmapHeaderSize = 40;

}  // namespace oru::rlx
