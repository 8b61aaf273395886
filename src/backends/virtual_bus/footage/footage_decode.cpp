#include "backends/virtual_bus/footage/footage_decode.hpp"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "backends/virtual_bus/footage/FootageDecoder.hpp"

namespace oru::virtual_bus {
namespace {

constexpr int kMaxSide = 16384;
constexpr double kDefaultFps = 30.0;

bool isRegularFile(const std::string& path) {
    struct stat facts {};
    return ::stat(path.c_str(), &facts) == 0 && S_ISREG(facts.st_mode);
}

/// Takes only images of the size that was announced.
class CheckedScaler {
public:
    explicit CheckedScaler(const ImageScaling& sizes)
        : sourceWidth(sizes.source_width), sourceHeight(sizes.source_height), scaler(sizes.width, sizes.height) {}

    [[nodiscard]] const unsigned char* scale(const AVFrame& frame) {
        const bool fits = frame.width == sourceWidth && frame.height == sourceHeight && scaler.scale(frame);
        return fits ? scaler.block() : nullptr;
    }

private:
    int sourceWidth;
    int sourceHeight;
    YuyvScaler scaler;
};

class ImageReader final : public FootageReader {
public:
    ImageReader(std::vector<ListedImage> images, const ImageScaling& scaling)
        : listedImages(std::move(images)), decodedFrame(av_frame_alloc()), scaler(scaling) {}

    bool next(uint64_t& time) override {
        if (nextIndex >= listedImages.size()) {
            return false;
        }
        time = listedImages[nextIndex].time_ns;
        return true;
    }

    const unsigned char* read() override {
        const ListedImage& image = listedImages[nextIndex++];
        FileDecoder decoder;
        std::string error;
        const bool decoded = decoder.open(image.path, error) && decoder.read(*decodedFrame);
        return decoded ? scaler.scale(*decodedFrame) : nullptr;
    }

    void skip() override { ++nextIndex; }

    bool rewind() override {
        nextIndex = 0;
        return true;
    }

private:
    std::vector<ListedImage> listedImages;
    coding::AvPtr<AVFrame> decodedFrame;
    CheckedScaler scaler;
    std::size_t nextIndex = 0;
};

class VideoReader final : public FootageReader {
public:
    explicit VideoReader(const ImageScaling& scaling)
        : ahead(av_frame_alloc()), taken(av_frame_alloc()), scaler(scaling) {}

    bool open(const std::string& path, double fps, std::string& error) {
        forcedFps = fps;
        return fileDecoder.open(path, error);
    }

    bool next(uint64_t& time) override {
        if (!hasAhead) {
            if (!fileDecoder.read(*ahead)) {
                return false;
            }
            hasAhead = true;
            announce();
        }
        time = aheadTime;
        return true;
    }

    const unsigned char* read() override {
        skip();
        return scaler.scale(*taken);
    }

    void skip() override {
        hasAhead = false;
        ++nextIndex;
        std::swap(ahead, taken);
    }

    bool rewind() override {
        hasAhead = false;
        nextIndex = 0;
        return fileDecoder.rewind();
    }

private:
    void announce() {
        const double fps = forcedFps > 0.0 ? forcedFps : fileDecoder.fps();
        double seconds = static_cast<double>(nextIndex) / fps;
        const double stamp = fileDecoder.secondsOf(*ahead);
        if (forcedFps <= 0.0 && stamp >= 0.0) {
            firstStamp = nextIndex == 0 ? stamp : firstStamp;
            seconds = stamp - firstStamp;
        }
        // Stamps that stand still or jump do not stop the image for longer than a second.
        const auto wanted = static_cast<uint64_t>(std::clamp(seconds, 0.0, 1e9) * 1e9);
        aheadTime = nextIndex == 0 ? 0 : std::clamp(wanted, aheadTime + 1'000'000, aheadTime + 1'000'000'000);
    }

    FileDecoder fileDecoder;
    coding::AvPtr<AVFrame> ahead;
    coding::AvPtr<AVFrame> taken;
    CheckedScaler scaler;
    bool hasAhead = false;
    double forcedFps = 0.0;
    double firstStamp = 0.0;
    uint64_t nextIndex = 0;
    uint64_t aheadTime = 0;
};

/// The full-range formats that are deprecated under their own names.
AVPixelFormat plainFormat(int format, bool& fullRange) {
    fullRange = true;
    switch (format) {
        case AV_PIX_FMT_YUVJ420P:
            return AV_PIX_FMT_YUV420P;
        case AV_PIX_FMT_YUVJ422P:
            return AV_PIX_FMT_YUV422P;
        case AV_PIX_FMT_YUVJ444P:
            return AV_PIX_FMT_YUV444P;
        case AV_PIX_FMT_YUVJ440P:
            return AV_PIX_FMT_YUV440P;
        case AV_PIX_FMT_YUVJ411P:
            return AV_PIX_FMT_YUV411P;
        default:
            fullRange = false;
            return static_cast<AVPixelFormat>(format);
    }
}

}  // namespace

bool FileDecoder::open(const std::string& path, std::string& error) {
    if (!isRegularFile(path)) {
        error = "it is not a file";
        return false;
    }
    AVDictionary* options = nullptr;
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    AVFormatContext* context = nullptr;
    const int result = avformat_open_input(&context, ("file:" + path).c_str(), nullptr, &options);
    av_dict_free(&options);
    if (result < 0) {
        error = "it is not a picture or video";
        return false;
    }
    formatContext.reset(context);
    const AVCodec* codec = nullptr;
    const int index = avformat_find_stream_info(context, nullptr) >= 0
                          ? av_find_best_stream(context, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0)
                          : -1;
    if (index < 0) {
        error = "it holds no picture that can be decoded";
        return false;
    }
    stream = context->streams[index];
    codecContext.reset(avcodec_alloc_context3(codec));
    packet.reset(av_packet_alloc());
    if (codecContext == nullptr || packet == nullptr ||
        avcodec_parameters_to_context(codecContext.get(), stream->codecpar) < 0) {
        error = "its decoder cannot be set up";
        return false;
    }
    codecContext->thread_count = 1;
    codecContext->pkt_timebase = stream->time_base;
    if (avcodec_open2(codecContext.get(), codec, nullptr) < 0) {
        error = "its decoder cannot be opened";
        return false;
    }
    draining = false;
    return true;
}

bool FileDecoder::read(AVFrame& frame) {
    for (;;) {
        av_frame_unref(&frame);
        const int result = avcodec_receive_frame(codecContext.get(), &frame);
        if (result >= 0) {
            return frame.width > 0 && frame.height > 0 && frame.width <= kMaxSide && frame.height <= kMaxSide;
        }
        if (draining || result == AVERROR_EOF) {
            return false;
        }
        av_packet_unref(packet.get());
        if (av_read_frame(formatContext.get(), packet.get()) < 0) {
            draining = true;
            (void)avcodec_send_packet(codecContext.get(), nullptr);
        } else if (packet->stream_index == stream->index) {
            // A packet that the decoder refuses costs its image and nothing else.
            (void)avcodec_send_packet(codecContext.get(), packet.get());
        }
    }
}

bool FileDecoder::rewind() {
    avcodec_flush_buffers(codecContext.get());
    draining = false;
    return av_seek_frame(formatContext.get(), stream->index, 0, AVSEEK_FLAG_BACKWARD) >= 0;
}

double FileDecoder::fps() const {
    const AVRational rate = av_guess_frame_rate(formatContext.get(), stream, nullptr);
    const double fps = rate.den > 0 ? av_q2d(rate) : 0.0;
    return fps >= 1.0 && fps <= 1000.0 ? fps : kDefaultFps;
}

double FileDecoder::secondsOf(const AVFrame& frame) const {
    return frame.best_effort_timestamp == AV_NOPTS_VALUE
               ? -1.0
               : static_cast<double>(frame.best_effort_timestamp) * av_q2d(stream->time_base);
}

namespace {

class FileFootageDecoder final : public FootageDecoder {
public:
    bool probe(const std::string& path, ImageFileFacts& facts, std::string& error) override {
        FileDecoder decoder;
        const coding::AvPtr<AVFrame> frame(av_frame_alloc());
        if (!decoder.open(path, error)) {
            return false;
        }
        if (!decoder.read(*frame)) {
            error = "its first picture cannot be decoded";
            return false;
        }
        facts = {frame->width, frame->height, decoder.fps()};
        return true;
    }

    std::unique_ptr<FootageReader> openImages(std::vector<ListedImage> images, const ImageScaling& scaling,
                                              std::string& /*error*/) override {
        return std::make_unique<ImageReader>(std::move(images), scaling);
    }

    std::unique_ptr<FootageReader> openVideo(const std::string& path, double fps, const ImageScaling& scaling,
                                             std::string& error) override {
        auto reader = std::make_unique<VideoReader>(scaling);
        return reader->open(path, fps, error) ? std::move(reader) : nullptr;
    }
};

}  // namespace

std::unique_ptr<FootageDecoder> makeFootageDecoder() {
    return std::make_unique<FileFootageDecoder>();
}

YuyvScaler::YuyvScaler(int width, int height)
    : targetWidth(width),
      targetHeight(height),
      pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 2) {}

bool YuyvScaler::prepare(const AVFrame& frame) {
    if (scaler != nullptr && frame.width == sourceWidth && frame.height == sourceHeight &&
        frame.format == sourceFormat && frame.color_range == sourceRange) {
        return true;
    }
    sourceWidth = frame.width;
    sourceHeight = frame.height;
    sourceFormat = frame.format;
    sourceRange = frame.color_range;
    bool fullRange = false;
    const AVPixelFormat format = plainFormat(frame.format, fullRange);
    fullRange = fullRange || frame.color_range == AVCOL_RANGE_JPEG;
    const bool smaller = targetWidth < frame.width;
    scaler.reset(sws_getContext(frame.width, frame.height, format, targetWidth, targetHeight, AV_PIX_FMT_YUYV422,
                                (smaller ? SWS_AREA : SWS_BICUBIC) | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INP, nullptr,
                                nullptr, nullptr));
    if (scaler == nullptr) {
        return false;
    }
    const int* source = sws_getCoefficients(frame.colorspace == AVCOL_SPC_BT709 ? SWS_CS_ITU709 : SWS_CS_ITU601);
    const int* target = sws_getCoefficients(SWS_CS_ITU601);
    // Formats without a choice of matrix refuse this, and do not need it.
    (void)sws_setColorspaceDetails(scaler.get(), source, fullRange ? 1 : 0, target, 0, 0, 1 << 16, 1 << 16);
    return true;
}

bool YuyvScaler::scale(const AVFrame& frame) {
    if (!prepare(frame)) {
        return false;
    }
    std::array<uint8_t*, 4> planes{pixels.data(), nullptr, nullptr, nullptr};
    std::array<int, 4> strides{targetWidth * 2, 0, 0, 0};
    return sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, planes.data(), strides.data()) ==
           targetHeight;
}

}  // namespace oru::virtual_bus
