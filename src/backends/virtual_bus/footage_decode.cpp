#include "backends/virtual_bus/footage_decode.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace oru::virtual_bus {
namespace {

constexpr int kMaxSide = 16384;
constexpr double kDefaultFps = 30.0;

bool isRegularFile(const std::string& path) {
    struct stat facts {};
    return ::stat(path.c_str(), &facts) == 0 && S_ISREG(facts.st_mode);
}

class ImageReader final : public FootageReader {
public:
    explicit ImageReader(std::vector<ListedPicture> pictures)
        : pictures_(std::move(pictures)), frame_(av_frame_alloc()) {}

    bool next(uint64_t& time) override {
        if (index_ >= pictures_.size()) {
            return false;
        }
        time = pictures_[index_].time_ns;
        return true;
    }

    const AVFrame* read(bool wanted) override {
        const ListedPicture& picture = pictures_[index_++];
        FileDecoder decoder;
        std::string error;
        return wanted && decoder.open(picture.path, error) && decoder.read(*frame_) ? frame_.get() : nullptr;
    }

    bool rewind() override {
        index_ = 0;
        return true;
    }

private:
    std::vector<ListedPicture> pictures_;
    FramePointer frame_;
    std::size_t index_ = 0;
};

class VideoReader final : public FootageReader {
public:
    VideoReader() : ahead_(av_frame_alloc()), taken_(av_frame_alloc()) {}

    bool open(const std::string& path, double fps, std::string& error) {
        forced_fps_ = fps;
        return decoder_.open(path, error);
    }

    bool next(uint64_t& time) override {
        if (!has_ahead_) {
            if (!decoder_.read(*ahead_)) {
                return false;
            }
            has_ahead_ = true;
            announce();
        }
        time = time_;
        return true;
    }

    const AVFrame* read(bool /*wanted*/) override {
        has_ahead_ = false;
        ++index_;
        std::swap(ahead_, taken_);
        return taken_.get();
    }

    bool rewind() override {
        has_ahead_ = false;
        index_ = 0;
        return decoder_.rewind();
    }

private:
    void announce() {
        const double fps = forced_fps_ > 0.0 ? forced_fps_ : decoder_.fps();
        double seconds = static_cast<double>(index_) / fps;
        const double stamp = decoder_.secondsOf(*ahead_);
        if (forced_fps_ <= 0.0 && stamp >= 0.0) {
            first_stamp_ = index_ == 0 ? stamp : first_stamp_;
            seconds = stamp - first_stamp_;
        }
        // Stamps that stand still or jump do not stop the picture for longer than a second.
        const auto wanted = static_cast<uint64_t>(std::clamp(seconds, 0.0, 1e9) * 1e9);
        time_ = index_ == 0 ? 0 : std::clamp(wanted, time_ + 1'000'000, time_ + 1'000'000'000);
    }

    FileDecoder decoder_;
    FramePointer ahead_;
    FramePointer taken_;
    bool has_ahead_ = false;
    double forced_fps_ = 0.0;
    double first_stamp_ = 0.0;
    uint64_t index_ = 0;
    uint64_t time_ = 0;
};

/// The full-range formats that are deprecated under their own names.
AVPixelFormat plainFormat(int format, bool& full_range) {
    full_range = true;
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
            full_range = false;
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
    format_.reset(context);
    const AVCodec* codec = nullptr;
    const int index = avformat_find_stream_info(context, nullptr) >= 0
                          ? av_find_best_stream(context, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0)
                          : -1;
    if (index < 0) {
        error = "it holds no picture that can be decoded";
        return false;
    }
    stream_ = context->streams[index];
    codec_.reset(avcodec_alloc_context3(codec));
    packet_.reset(av_packet_alloc());
    if (codec_ == nullptr || packet_ == nullptr || avcodec_parameters_to_context(codec_.get(), stream_->codecpar) < 0) {
        error = "its decoder cannot be set up";
        return false;
    }
    codec_->thread_count = 1;
    codec_->pkt_timebase = stream_->time_base;
    if (avcodec_open2(codec_.get(), codec, nullptr) < 0) {
        error = "its decoder cannot be opened";
        return false;
    }
    draining_ = false;
    return true;
}

bool FileDecoder::read(AVFrame& frame) {
    for (;;) {
        av_frame_unref(&frame);
        const int result = avcodec_receive_frame(codec_.get(), &frame);
        if (result >= 0) {
            return frame.width > 0 && frame.height > 0 && frame.width <= kMaxSide && frame.height <= kMaxSide;
        }
        if (draining_ || result == AVERROR_EOF) {
            return false;
        }
        av_packet_unref(packet_.get());
        if (av_read_frame(format_.get(), packet_.get()) < 0) {
            draining_ = true;
            (void)avcodec_send_packet(codec_.get(), nullptr);
        } else if (packet_->stream_index == stream_->index) {
            // A packet that the decoder refuses costs its picture and nothing else.
            (void)avcodec_send_packet(codec_.get(), packet_.get());
        }
    }
}

bool FileDecoder::rewind() {
    avcodec_flush_buffers(codec_.get());
    draining_ = false;
    return av_seek_frame(format_.get(), stream_->index, 0, AVSEEK_FLAG_BACKWARD) >= 0;
}

double FileDecoder::fps() const {
    const AVRational rate = av_guess_frame_rate(format_.get(), stream_, nullptr);
    const double fps = rate.den > 0 ? av_q2d(rate) : 0.0;
    return fps >= 1.0 && fps <= 1000.0 ? fps : kDefaultFps;
}

double FileDecoder::secondsOf(const AVFrame& frame) const {
    return frame.best_effort_timestamp == AV_NOPTS_VALUE
               ? -1.0
               : static_cast<double>(frame.best_effort_timestamp) * av_q2d(stream_->time_base);
}

std::unique_ptr<FootageReader> makeImageReader(std::vector<ListedPicture> pictures) {
    return std::make_unique<ImageReader>(std::move(pictures));
}

std::unique_ptr<FootageReader> makeVideoReader(const std::string& path, double fps, std::string& error) {
    auto reader = std::make_unique<VideoReader>();
    if (!reader->open(path, fps, error)) {
        return nullptr;
    }
    return reader;
}

YuyvScaler::YuyvScaler(int width, int height)
    : width_(width), height_(height), pixels_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 2) {}

bool YuyvScaler::prepare(const AVFrame& frame) {
    if (scaler_ != nullptr && frame.width == source_width_ && frame.height == source_height_ &&
        frame.format == source_format_ && frame.color_range == source_range_) {
        return true;
    }
    source_width_ = frame.width;
    source_height_ = frame.height;
    source_format_ = frame.format;
    source_range_ = frame.color_range;
    bool full_range = false;
    const AVPixelFormat format = plainFormat(frame.format, full_range);
    full_range = full_range || frame.color_range == AVCOL_RANGE_JPEG;
    const bool smaller = width_ < frame.width;
    scaler_.reset(sws_getContext(frame.width, frame.height, format, width_, height_, AV_PIX_FMT_YUYV422,
                                 (smaller ? SWS_AREA : SWS_BICUBIC) | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INP, nullptr,
                                 nullptr, nullptr));
    if (scaler_ == nullptr) {
        return false;
    }
    const int* source = sws_getCoefficients(frame.colorspace == AVCOL_SPC_BT709 ? SWS_CS_ITU709 : SWS_CS_ITU601);
    const int* target = sws_getCoefficients(SWS_CS_ITU601);
    // Formats without a choice of matrix refuse this, and do not need it.
    (void)sws_setColorspaceDetails(scaler_.get(), source, full_range ? 1 : 0, target, 0, 0, 1 << 16, 1 << 16);
    return true;
}

bool YuyvScaler::scale(const AVFrame& frame) {
    if (!prepare(frame)) {
        return false;
    }
    std::array<uint8_t*, 4> planes{pixels_.data(), nullptr, nullptr, nullptr};
    std::array<int, 4> strides{width_ * 2, 0, 0, 0};
    return sws_scale(scaler_.get(), frame.data, frame.linesize, 0, frame.height, planes.data(), strides.data()) ==
           height_;
}

}  // namespace oru::virtual_bus
