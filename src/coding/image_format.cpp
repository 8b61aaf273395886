#include "coding/image_format.hpp"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

#include <cstddef>
#include <utility>

#include "utils/yuv.hpp"

namespace oru::coding {
namespace {

std::size_t stepOf(const AVFrame& image, int plane) {
    return static_cast<std::size_t>(image.linesize[plane]);
}

}  // namespace

int pixelFormat(VideoCodec codec) {
    return codec == VideoCodec::H264 || codec == VideoCodec::H265 ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_YUV422P;
}

AvPtr<AVFrame> makeImage(VideoCodec codec, uint32_t width, uint32_t height) {
    AvPtr<AVFrame> image(av_frame_alloc());
    if (image == nullptr) {
        return nullptr;
    }
    image->format = pixelFormat(codec);
    image->width = static_cast<int>(width);
    image->height = static_cast<int>(height);
    return av_frame_get_buffer(image.get(), 0) == 0 ? std::move(image) : nullptr;
}

bool isWritable(AVFrame& image) {
    return av_frame_is_writable(&image) != 0;
}

bool makeWritable(AVFrame& image) {
    return av_frame_make_writable(&image) >= 0;
}

bool isPlanar420(const AVFrame& image) {
    return image.format == AV_PIX_FMT_YUV420P || image.format == AV_PIX_FMT_YUVJ420P;
}

bool isPlanar422(const AVFrame& image) {
    return image.format == AV_PIX_FMT_YUV422P || image.format == AV_PIX_FMT_YUVJ422P;
}

void packedToPlanar(const uint8_t* packed, AVFrame& planar) {
    const YuvPlanes planes{planar.data[0],    planar.data[1],    planar.data[2],
                           stepOf(planar, 0), stepOf(planar, 1), stepOf(planar, 2)};
    const auto width = static_cast<std::size_t>(planar.width);
    const auto height = static_cast<std::size_t>(planar.height);
    (isPlanar420(planar) ? yuyvToI420 : yuyvToI422)(packed, width * 2, planes, width, height);
}

void planarToPacked(const AVFrame& planar, uint8_t* packed) {
    const ConstYuvPlanes planes{planar.data[0],    planar.data[1],    planar.data[2],
                                stepOf(planar, 0), stepOf(planar, 1), stepOf(planar, 2)};
    const auto width = static_cast<std::size_t>(planar.width);
    const auto height = static_cast<std::size_t>(planar.height);
    (isPlanar420(planar) ? i420ToYuyv : i422ToYuyv)(planes, packed, width * 2, width, height);
}

}  // namespace oru::coding
