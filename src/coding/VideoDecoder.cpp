#include "coding/VideoDecoder.hpp"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/mem.h>
}

#include <algorithm>
#include <climits>

#include "coding/image_format.hpp"

namespace oru::coding {
namespace {

static_assert(VideoDecoder::kPaddingBytes >= AV_INPUT_BUFFER_PADDING_SIZE);

constexpr int64_t kCodingMargin = 64;  // pixels by which a coded side may exceed the image's
constexpr int kBitsPerPixel = 16;

AVCodecID idOf(VideoCodec codec) {
    switch (codec) {
        case VideoCodec::H264:
            return AV_CODEC_ID_H264;
        case VideoCodec::H265:
            return AV_CODEC_ID_HEVC;
        case VideoCodec::FFVHUFF:
            return AV_CODEC_ID_FFVHUFF;
        case VideoCodec::FFV1:
            return AV_CODEC_ID_FFV1;
        default:
            return AV_CODEC_ID_NONE;
    }
}

}  // namespace

bool VideoDecoder::open(const Settings& wanted) {
    close();
    settings = wanted;
    const AVCodec* decoder = avcodec_find_decoder(idOf(wanted.codec));
    context.reset(decoder == nullptr ? nullptr : avcodec_alloc_context3(decoder));
    packet.reset(av_packet_alloc());
    image.reset(av_frame_alloc());
    const bool ready = context != nullptr && packet != nullptr && image != nullptr && configure(*context) &&
                       avcodec_open2(context.get(), decoder, nullptr) == 0;
    settings.extra_data = {};
    if (!ready) {
        close();
    }
    return ready;
}

bool VideoDecoder::configure(AVCodecContext& fresh) const {
    if (!settings.extra_data.empty()) {
        const std::size_t size = settings.extra_data.size();
        fresh.extradata = static_cast<uint8_t*>(av_mallocz(size + kPaddingBytes));
        if (fresh.extradata == nullptr) {
            return false;
        }
        std::copy(settings.extra_data.begin(), settings.extra_data.end(), fresh.extradata);
        fresh.extradata_size = static_cast<int>(size);
    }
    fresh.flags |= AV_CODEC_FLAG_LOW_DELAY;
    fresh.err_recognition = AV_EF_CRCCHECK | AV_EF_EXPLODE;
    fresh.max_pixels = (settings.width + kCodingMargin) * (settings.height + kCodingMargin);
    if (settings.use == CodecUse::STREAMING) {
        // One thread: more of them would each hold a frame back.
        fresh.thread_count = 1;
        fresh.err_recognition |= AV_EF_BITSTREAM | AV_EF_BUFFER;
        return true;
    }
    fresh.width = static_cast<int>(settings.width);
    fresh.height = static_cast<int>(settings.height);
    fresh.bits_per_coded_sample = kBitsPerPixel;
    fresh.codec_tag = settings.codec == VideoCodec::FFVHUFF ? MKTAG('F', 'F', 'V', 'H') : 0;
    fresh.thread_count = recordingThreads();
    fresh.thread_type = FF_THREAD_SLICE;  // one image in, one out
    return true;
}

void VideoDecoder::close() {
    context.reset();
    settings.codec = VideoCodec::NONE;
}

void VideoDecoder::reset() {
    if (context != nullptr) {
        avcodec_flush_buffers(context.get());
    }
}

const AVFrame* VideoDecoder::decode(uint8_t* data, std::size_t size) {
    if (context == nullptr || size > INT_MAX - kPaddingBytes) {
        return nullptr;
    }
    const int64_t number = ++lastNumber;
    packet->data = data;
    packet->size = static_cast<int>(size);
    packet->pts = number;
    packet->dts = AV_NOPTS_VALUE;
    bool received = avcodec_send_packet(context.get(), packet.get()) == 0;
    packet->data = nullptr;
    packet->size = 0;
    do {
        received = received && avcodec_receive_frame(context.get(), image.get()) == 0;
    } while (received && image->pts != number);
    return received && isAsWanted(*image) ? image.get() : nullptr;
}

bool VideoDecoder::isAsWanted(const AVFrame& decoded) const {
    const bool fits =
        decoded.width == static_cast<int>(settings.width) && decoded.height == static_cast<int>(settings.height);
    const bool planar = isPlanar420(decoded) || (settings.use == CodecUse::RECORDING && isPlanar422(decoded));
    const bool sound = (decoded.flags & AV_FRAME_FLAG_CORRUPT) == 0 && decoded.decode_error_flags == 0;
    return fits && planar && sound;
}

}  // namespace oru::coding
