#include "coding/VideoEncoder.hpp"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <string_view>
#include <utility>

#include "coding/image_format.hpp"

namespace oru::coding {
namespace {

constexpr int64_t kBitsPerKilobit = 1000;
constexpr uint32_t kTwoThreadPixels = 1'000'000;

void setRate(AVCodecContext& context, CodecUse use, uint32_t kilobits) {
    const int64_t bits = kilobits * kBitsPerKilobit;
    const bool recording = use == CodecUse::RECORDING;
    context.bit_rate = bits;
    context.rc_max_rate = recording ? bits * 2 : bits;
    // A recording may run a second ahead of its rate, a stream a quarter of one.
    context.rc_buffer_size = static_cast<int>(std::min<int64_t>(recording ? bits : bits / 4, INT32_MAX));
}

bool holds(OptionUse option, const VideoEncoder::Settings& settings) {
    switch (option) {
        case OptionUse::RECORDING:
            return settings.use == CodecUse::RECORDING;
        case OptionUse::RECORDING_BY_QUALITY:
            return settings.use == CodecUse::RECORDING && settings.bitrate == 0;
        case OptionUse::STREAMING:
            return settings.use == CodecUse::STREAMING;
        default:
            return true;
    }
}

}  // namespace

bool VideoEncoder::open(const Encoder& candidate, const Settings& wanted) {
    settings = wanted;
    packet.reset(av_packet_alloc());
    return packet != nullptr && start(candidate);
}

bool VideoEncoder::start(const Encoder& candidate) {
    context.reset();
    const AVCodec* codec = avcodec_find_encoder_by_name(candidate.name);
    AvPtr<AVCodecContext> fresh(codec == nullptr ? nullptr : avcodec_alloc_context3(codec));
    if (fresh == nullptr) {
        return false;
    }
    configure(*fresh, candidate);
    if (avcodec_open2(fresh.get(), codec, nullptr) < 0) {
        return false;
    }
    context = std::move(fresh);
    encoder = &candidate;
    return true;
}

void VideoEncoder::configure(AVCodecContext& fresh, const Encoder& candidate) const {
    fresh.width = static_cast<int>(settings.width);
    fresh.height = static_cast<int>(settings.height);
    fresh.pix_fmt = static_cast<AVPixelFormat>(pixelFormat(settings.codec));
    fresh.time_base = {1, settings.ticks_per_second};
    fresh.framerate = {settings.fps, 1};
    fresh.gop_size = settings.gop_size;
    fresh.max_b_frames = 0;
    fresh.colorspace = AVCOL_SPC_SMPTE170M;
    fresh.color_range = AVCOL_RANGE_MPEG;
    fresh.color_primaries = AVCOL_PRI_BT709;
    fresh.color_trc = AVCOL_TRC_BT709;
    fresh.chroma_sample_location = AVCHROMA_LOC_LEFT;
    if (settings.use == CodecUse::RECORDING) {
        fresh.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        fresh.thread_count = recordingThreads();
        fresh.thread_type = FF_THREAD_SLICE;
    } else {
        fresh.thread_count = settings.width * settings.height > kTwoThreadPixels ? 2 : 1;
    }
    if (settings.bitrate > 0) {
        setRate(fresh, settings.use, settings.bitrate);
    }
    for (const EncoderOption& option : encoderOptions()) {
        if (std::string_view(option.encoder) == candidate.name && holds(option.use, settings)) {
            // A build of the library may lack one; the encoder works without it.
            (void)av_opt_set(&fresh, option.key, option.value, AV_OPT_SEARCH_CHILDREN);
        }
    }
}

bool VideoEncoder::setBitrate(uint32_t kilobits) {
    settings.bitrate = kilobits;
    if (context == nullptr || !encoder->adjusts_bitrate) {
        return start(*encoder);
    }
    setRate(*context, settings.use, kilobits);
    return true;
}

std::span<const uint8_t> VideoEncoder::extraData() const {
    return {context->extradata, static_cast<std::size_t>(std::max(0, context->extradata_size))};
}

bool VideoEncoder::encode(AVFrame& image, int64_t pts, bool keyFrame, const Output& output) {
    image.pts = pts;
    image.pict_type = keyFrame ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
    return context != nullptr && avcodec_send_frame(context.get(), &image) >= 0 && drain(output);
}

bool VideoEncoder::finish(const Output& output) {
    return context != nullptr && avcodec_send_frame(context.get(), nullptr) >= 0 && drain(output);
}

bool VideoEncoder::drain(const Output& output) {
    while (true) {
        const int result = avcodec_receive_packet(context.get(), packet.get());
        if (result < 0) {
            return result == AVERROR(EAGAIN) || result == AVERROR_EOF;
        }
        const bool taken = output({packet->data, static_cast<std::size_t>(packet->size), packet->pts,
                                   (packet->flags & AV_PKT_FLAG_KEY) != 0});
        av_packet_unref(packet.get());
        if (!taken) {
            return false;
        }
    }
}

}  // namespace oru::coding
