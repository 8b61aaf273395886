#include "coding/av_pointers.hpp"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

namespace oru::coding {

void AvDelete::operator()(AVCodecContext* context) const {
    avcodec_free_context(&context);
}

void AvDelete::operator()(AVFrame* image) const {
    av_frame_free(&image);
}

void AvDelete::operator()(AVPacket* packet) const {
    av_packet_free(&packet);
}

void AvDelete::operator()(SwsContext* scaler) const {
    sws_freeContext(scaler);
}

void AvCloseInput::operator()(AVFormatContext* input) const {
    avformat_close_input(&input);
}

}  // namespace oru::coding
