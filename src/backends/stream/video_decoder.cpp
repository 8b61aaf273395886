#include "video_decoder.hpp"

namespace oru::stream {

bool VideoDecoder::open(VideoCodec codec, uint32_t width, uint32_t height) {
    close();
    const AVCodec* decoder = avcodec_find_decoder(codec == VideoCodec::H265 ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264);
    if (decoder == nullptr || codec == VideoCodec::NONE) {
        return false;
    }
    context_.reset(avcodec_alloc_context3(decoder));
    packet_.reset(av_packet_alloc());
    picture_.reset(av_frame_alloc());
    if (!context_ || !packet_ || !picture_) {
        close();
        return false;
    }
    // One thread: more of them would each hold a frame back.
    context_->thread_count = 1;
    context_->flags |= AV_CODEC_FLAG_LOW_DELAY;
    context_->err_recognition = AV_EF_CRCCHECK | AV_EF_BITSTREAM | AV_EF_BUFFER | AV_EF_EXPLODE;
    context_->max_pixels = int64_t{width} * height * 2;
    if (avcodec_open2(context_.get(), decoder, nullptr) != 0) {
        close();
        return false;
    }
    codec_ = codec;
    width_ = static_cast<int>(width);
    height_ = static_cast<int>(height);
    return true;
}

void VideoDecoder::close() {
    context_.reset();
    codec_ = VideoCodec::NONE;
}

const AVFrame* VideoDecoder::decode(uint8_t* data, std::size_t size, int64_t id) {
    packet_->data = data;
    packet_->size = static_cast<int>(size);
    packet_->pts = id;
    packet_->dts = AV_NOPTS_VALUE;
    const bool accepted = avcodec_send_packet(context_.get(), packet_.get()) == 0;
    packet_->data = nullptr;
    packet_->size = 0;
    bool received = accepted;
    do {
        received = received && avcodec_receive_frame(context_.get(), picture_.get()) == 0;
    } while (received && picture_->pts != id);
    if (!received) {
        return nullptr;
    }
    const bool planar = picture_->format == AV_PIX_FMT_YUV420P || picture_->format == AV_PIX_FMT_YUVJ420P;
    const bool sound = (picture_->flags & AV_FRAME_FLAG_CORRUPT) == 0 && picture_->decode_error_flags == 0;
    const bool fits = picture_->width == width_ && picture_->height == height_;
    return planar && sound && fits ? picture_.get() : nullptr;
}

}  // namespace oru::stream
