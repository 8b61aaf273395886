#include "backends/stream/sender/video_encoder.hpp"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

namespace oru::stream {
namespace {

constexpr AVRational kClock{1, 90000};
constexpr int kFallbackFps = 30;
constexpr uint32_t kTwoThreadPixels = 1000000;

constexpr std::array kH264Names = {"h264_nvenc", "h264_v4l2m2m", "libx264"};
constexpr std::array kH265Names = {"hevc_nvenc", "hevc_v4l2m2m", "libx265"};

struct Option {
    const char* encoder;
    const char* key;
    const char* value;
};

// Lowest delay, and parameter sets with every key frame, so that a receiver can join at any of them. libx265 3.5
// forgets buffers (0.2 MB at 1920x1200) at every closing when its loop filter (sao) is off, as the preset has it.
constexpr std::array kOptions = {
    Option{"libx264", "preset", "ultrafast"},
    Option{"libx264", "tune", "zerolatency"},
    Option{"libx264", "forced-idr", "1"},
    Option{"libx265", "preset", "ultrafast"},
    Option{"libx265", "tune", "zerolatency"},
    Option{"libx265", "forced-idr", "1"},
    Option{"libx265", "x265-params", "frame-threads=1:repeat-headers=1:sao=1:log-level=error"},
    Option{"h264_nvenc", "preset", "p2"},
    Option{"h264_nvenc", "tune", "ull"},
    Option{"h264_nvenc", "zerolatency", "1"},
    Option{"h264_nvenc", "delay", "0"},
    Option{"h264_nvenc", "forced-idr", "1"},
    Option{"hevc_nvenc", "preset", "p2"},
    Option{"hevc_nvenc", "tune", "ull"},
    Option{"hevc_nvenc", "zerolatency", "1"},
    Option{"hevc_nvenc", "delay", "0"},
    Option{"hevc_nvenc", "forced-idr", "1"},
};

bool takesPlanar420(const AVCodec& codec) {
    for (const AVPixelFormat* format = codec.pix_fmts; format != nullptr && *format != AV_PIX_FMT_NONE; ++format) {
        if (*format == AV_PIX_FMT_YUV420P) {
            return true;
        }
    }
    return codec.pix_fmts == nullptr;
}

}  // namespace

AvPtr<AVFrame> makeImage(uint32_t width, uint32_t height) {
    AvPtr<AVFrame> image(av_frame_alloc());
    if (!image) {
        return nullptr;
    }
    image->format = AV_PIX_FMT_YUV420P;
    image->width = static_cast<int>(width);
    image->height = static_cast<int>(height);
    return av_frame_get_buffer(image.get(), 0) == 0 ? std::move(image) : nullptr;
}

bool VideoEncoder::open(const Settings& settings) {
    wanted = settings;
    packet.reset(av_packet_alloc());
    const std::span<const char* const> names = settings.codec == VideoCodec::H265 ? kH265Names : kH264Names;
    return packet != nullptr &&
           std::any_of(names.begin(), names.end(), [&](const char* name) { return tryOpen(name); });
}

bool VideoEncoder::tryOpen(const char* name) {
    const AVCodec* codec = avcodec_find_encoder_by_name(name);
    if (codec == nullptr || !takesPlanar420(*codec)) {
        return false;
    }
    AvPtr<AVCodecContext> context(avcodec_alloc_context3(codec));
    if (!context) {
        return false;
    }
    context->width = static_cast<int>(wanted.width);
    context->height = static_cast<int>(wanted.height);
    context->pix_fmt = AV_PIX_FMT_YUV420P;
    context->time_base = kClock;
    context->framerate = {wanted.fps > 0 ? wanted.fps : kFallbackFps, 1};
    context->gop_size = wanted.gop_size > 0 ? wanted.gop_size : 2 * kFallbackFps;
    context->max_b_frames = 0;
    context->color_range = AVCOL_RANGE_MPEG;
    context->thread_count = wanted.width * wanted.height > kTwoThreadPixels ? 2 : 1;
    for (const Option& option : kOptions) {
        if (std::string_view(option.encoder) == name) {
            av_opt_set(context->priv_data, option.key, option.value, 0);
        }
    }
    codecContext = std::move(context);
    setRate(wanted.bitrate);
    if (avcodec_open2(codecContext.get(), codec, nullptr) != 0) {
        codecContext.reset();
        return false;
    }
    chosen = name;
    return true;
}

void VideoEncoder::setRate(uint32_t kilobits) {
    constexpr int64_t kBufferPart = 4;  // the encoder may be a quarter of a second ahead of its rate
    const int64_t bits = int64_t{kilobits} * 1000;
    codecContext->bit_rate = bits;
    codecContext->rc_max_rate = bits;
    codecContext->rc_buffer_size = static_cast<int>(bits / kBufferPart);
}

bool VideoEncoder::setBitrate(uint32_t kilobits) {
    wanted.bitrate = kilobits;
    const bool adjustable = chosen == "libx264" || chosen == "h264_nvenc" || chosen == "hevc_nvenc";
    if (adjustable) {
        setRate(kilobits);
        return true;
    }
    codecContext.reset();
    return tryOpen(std::string(chosen).c_str());
}

const char* VideoEncoder::name() const {
    return chosen.c_str();
}

bool VideoEncoder::encode(AVFrame& image, bool key_frame, const Output& output) {
    image.pict_type = key_frame ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
    if (codecContext == nullptr || avcodec_send_frame(codecContext.get(), &image) < 0) {
        return false;
    }
    while (true) {
        const int result = avcodec_receive_packet(codecContext.get(), packet.get());
        if (result == AVERROR(EAGAIN)) {
            return true;
        }
        if (result < 0) {
            return false;
        }
        output({packet->data, static_cast<std::size_t>(packet->size), packet->pts,
                (packet->flags & AV_PKT_FLAG_KEY) != 0});
        av_packet_unref(packet.get());
    }
}

}  // namespace oru::stream
