#include "backends/stream/receiver/VideoDecoder.hpp"

namespace oru::stream {

bool VideoDecoder::open(VideoCodec codec, uint32_t width, uint32_t height) {
    close();
    const AVCodec* decoder = avcodec_find_decoder(codec == VideoCodec::H265 ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264);
    if (decoder == nullptr || codec == VideoCodec::NONE) {
        return false;
    }
    context.reset(avcodec_alloc_context3(decoder));
    packet.reset(av_packet_alloc());
    image.reset(av_frame_alloc());
    if (!context || !packet || !image) {
        close();
        return false;
    }
    // One thread: more of them would each hold a frame back.
    context->thread_count = 1;
    context->flags |= AV_CODEC_FLAG_LOW_DELAY;
    context->err_recognition = AV_EF_CRCCHECK | AV_EF_BITSTREAM | AV_EF_BUFFER | AV_EF_EXPLODE;
    context->max_pixels = int64_t{width} * height * 2;
    if (avcodec_open2(context.get(), decoder, nullptr) != 0) {
        close();
        return false;
    }
    openCodec = codec;
    imageWidth = static_cast<int>(width);
    imageHeight = static_cast<int>(height);
    return true;
}

void VideoDecoder::close() {
    context.reset();
    openCodec = VideoCodec::NONE;
}

const AVFrame* VideoDecoder::decode(uint8_t* data, std::size_t size, int64_t id) {
    packet->data = data;
    packet->size = static_cast<int>(size);
    packet->pts = id;
    packet->dts = AV_NOPTS_VALUE;
    const bool accepted = avcodec_send_packet(context.get(), packet.get()) == 0;
    packet->data = nullptr;
    packet->size = 0;
    bool received = accepted;
    do {
        received = received && avcodec_receive_frame(context.get(), image.get()) == 0;
    } while (received && image->pts != id);
    if (!received) {
        return nullptr;
    }
    const bool planar = image->format == AV_PIX_FMT_YUV420P || image->format == AV_PIX_FMT_YUVJ420P;
    const bool sound = (image->flags & AV_FRAME_FLAG_CORRUPT) == 0 && image->decode_error_flags == 0;
    const bool fits = image->width == imageWidth && image->height == imageHeight;
    return planar && sound && fits ? image.get() : nullptr;
}

}  // namespace oru::stream
