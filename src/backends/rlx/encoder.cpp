extern "C" {
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cmath>
#include <thread>

#include "backends/rlx/codec_names.hpp"
#include "backends/rlx/nal_units.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"
#include "utils/yuv.hpp"

namespace oru::rlx {

namespace {

constexpr const char* kH264Encoders[] = {"h264_nvenc", "libx264"};
constexpr const char* kH265Encoders[] = {"hevc_nvenc", "libx265"};
constexpr const char* kLosslessEncoders[] = {"ffvhuff"};
constexpr const char* kFfv1Encoders[] = {"ffv1"};
constexpr int kMaxThreads = 4;
constexpr int64_t kBitsPerKilobit = 1000;

/// Stores the camera's bytes as they are.
class RawEncoder final : public PictureEncoder {
public:
    explicit RawEncoder(std::size_t size) : size_(size) {}

    const Bytes& codecPrivate() const override { return none_; }
    const std::string& name() const override { return name_; }
    bool encode(const unsigned char* yuyv, uint64_t number, const CodedSink& sink) override {
        return sink({{yuyv, size_}, true, number});
    }
    bool finish(const CodedSink& /*sink*/) override { return true; }

private:
    std::size_t size_;
    Bytes none_;
    std::string name_ = "raw";
};

class LibraryEncoder final : public PictureEncoder {
public:
    static std::unique_ptr<PictureEncoder> open(const rlxrw::RlxRecordingHeader& header, const ModeCodec& mode,
                                                const char* name);

    const Bytes& codecPrivate() const override { return codec_private_; }
    const std::string& name() const override { return name_; }
    bool encode(const unsigned char* yuyv, uint64_t number, const CodedSink& sink) override;
    bool finish(const CodedSink& sink) override;

private:
    bool prepare(const rlxrw::RlxRecordingHeader& header, const ModeCodec& mode);
    bool makeCodecPrivate(const rlxrw::RlxRecordingHeader& header);
    bool drain(const CodedSink& sink);

    Context context_;
    Frame frame_{av_frame_alloc()};
    Packet packet_{av_packet_alloc()};
    bool byte_stream_ = false;
    Bytes codec_private_;
    Bytes coded_;
    std::vector<ByteView> units_;
    std::string name_;
};

void setOption(AVCodecContext& context, const char* name, const char* value) {
    // Not every encoder knows every option.
    (void)av_opt_set(&context, name, value, AV_OPT_SEARCH_CHILDREN);
}

void configure(AVCodecContext& context, const rlxrw::RlxRecordingHeader& header, AVPixelFormat format,
               const std::string& name) {
    const int rate = std::max(1, static_cast<int>(std::lround(header.fps)));
    context.width = static_cast<int>(header.width);
    context.height = static_cast<int>(header.height);
    context.pix_fmt = format;
    context.time_base = {1, rate};
    context.framerate = {rate, 1};
    context.gop_size = isIntraOnly(header.compression_mode) ? 1 : rate;
    context.max_b_frames = 0;
    context.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    context.thread_count = std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, kMaxThreads);
    context.thread_type = FF_THREAD_SLICE;
    if (header.bitrate > 0 && !isIntraOnly(header.compression_mode)) {
        context.bit_rate = header.bitrate * kBitsPerKilobit;
        context.rc_max_rate = context.bit_rate * 2;
        context.rc_buffer_size = static_cast<int>(std::min<int64_t>(context.bit_rate, INT32_MAX));
    }
    if (name == "libx264" || name == "libx265") {
        setOption(context, "preset", "ultrafast");
        setOption(context, "tune", "zerolatency");
        if (header.bitrate == 0) {
            setOption(context, "crf", name == "libx264" ? "18" : "20");
        }
        setOption(context, "x265-params", "log-level=none");
    } else if (name == "ffv1") {
        context.level = 3;
        setOption(context, "coder", "rice");
        setOption(context, "context", "0");
        context.slices = 4;
        setOption(context, "slicecrc", "1");
    } else if (name.find("nvenc") != std::string::npos) {
        setOption(context, "preset", "p1");
        setOption(context, "tune", "ull");
        setOption(context, "delay", "0");
        if (header.bitrate == 0) {
            setOption(context, "rc", "constqp");
            setOption(context, "qp", "20");
        }
    }
}

}  // namespace

bool isIntraOnly(RLX_COMPRESSION_MODE mode) {
    return mode == RLX_RAW || mode == RLX_LOSSLESS || mode == RLX_FFV1;
}

ModeCodec modeCodec(RLX_COMPRESSION_MODE mode) {
    switch (mode) {
        case RLX_H264:
            return {AV_CODEC_ID_H264, AV_PIX_FMT_YUV420P, kH264Encoders};
        case RLX_H265:
            return {AV_CODEC_ID_HEVC, AV_PIX_FMT_YUV420P, kH265Encoders};
        case RLX_LOSSLESS:
            return {AV_CODEC_ID_FFVHUFF, AV_PIX_FMT_YUV422P, kLosslessEncoders};
        case RLX_FFV1:
            return {AV_CODEC_ID_FFV1, AV_PIX_FMT_YUV422P, kFfv1Encoders};
        default:
            return {};
    }
}

Bytes bitmapHeader(uint32_t width, uint32_t height, uint32_t fourcc, ByteView extra) {
    Bytes out;
    FieldWriter fields(out);
    fields.u32(static_cast<uint32_t>(kBitmapHeaderSize + extra.size()));
    fields.u32(width);
    fields.u32(height);
    fields.u16(1);
    fields.u16(16);
    fields.u32(fourcc);
    fields.u32(width * height * 2);
    fields.zeros(16);
    fields.bytes(extra);
    return out;
}

std::unique_ptr<PictureEncoder> LibraryEncoder::open(const rlxrw::RlxRecordingHeader& header, const ModeCodec& mode,
                                                     const char* name) {
    const AVCodec* codec = avcodec_find_encoder_by_name(name);
    if (codec == nullptr) {
        return nullptr;
    }
    auto encoder = std::make_unique<LibraryEncoder>();
    encoder->name_ = name;
    encoder->context_.reset(avcodec_alloc_context3(codec));
    if (encoder->context_ == nullptr || !encoder->prepare(header, mode)) {
        return nullptr;
    }
    return encoder;
}

bool LibraryEncoder::prepare(const rlxrw::RlxRecordingHeader& header, const ModeCodec& mode) {
    if (frame_ == nullptr || packet_ == nullptr) {
        return false;
    }
    configure(*context_, header, mode.format, name_);
    if (avcodec_open2(context_.get(), nullptr, nullptr) < 0) {
        return false;
    }
    frame_->format = mode.format;
    frame_->width = context_->width;
    frame_->height = context_->height;
    return av_frame_get_buffer(frame_.get(), 0) >= 0 && makeCodecPrivate(header);
}

bool LibraryEncoder::makeCodecPrivate(const rlxrw::RlxRecordingHeader& header) {
    const ByteView extra(context_->extradata, static_cast<std::size_t>(std::max(0, context_->extradata_size)));
    std::optional<Bytes> result;
    switch (header.compression_mode) {
        case RLX_H264:
            byte_stream_ = true;
            result = avcConfiguration(extra);
            break;
        case RLX_H265:
            byte_stream_ = true;
            result = hevcConfiguration(extra);
            break;
        case RLX_LOSSLESS:
            result = bitmapHeader(header.width, header.height, MKTAG('F', 'F', 'V', 'H'), extra);
            break;
        default:
            result = Bytes(extra.begin(), extra.end());
    }
    codec_private_ = result.value_or(Bytes{});
    return result.has_value();
}

bool LibraryEncoder::encode(const unsigned char* yuyv, uint64_t number, const CodedSink& sink) {
    if (av_frame_make_writable(frame_.get()) < 0) {
        return false;
    }
    const YuvPlanes planes{frame_->data[0],    frame_->data[1],    frame_->data[2],
                           stepOf(*frame_, 0), stepOf(*frame_, 1), stepOf(*frame_, 2)};
    const auto width = static_cast<std::size_t>(frame_->width);
    const auto height = static_cast<std::size_t>(frame_->height);
    const bool is_420 = frame_->format == AV_PIX_FMT_YUV420P;
    (is_420 ? yuyvToI420 : yuyvToI422)(yuyv, width * 2, planes, width, height);
    frame_->pts = static_cast<int64_t>(number);
    return avcodec_send_frame(context_.get(), frame_.get()) >= 0 && drain(sink);
}

bool LibraryEncoder::finish(const CodedSink& sink) {
    return avcodec_send_frame(context_.get(), nullptr) >= 0 && drain(sink);
}

bool LibraryEncoder::drain(const CodedSink& sink) {
    while (true) {
        const int result = avcodec_receive_packet(context_.get(), packet_.get());
        if (result < 0) {
            return result == AVERROR(EAGAIN) || result == AVERROR_EOF;
        }
        CodedPicture picture;
        picture.bytes = {packet_->data, static_cast<std::size_t>(packet_->size)};
        picture.key = (packet_->flags & AV_PKT_FLAG_KEY) != 0;
        picture.number = static_cast<uint64_t>(packet_->pts);
        if (byte_stream_) {
            coded_.clear();
            putLengthPrefixed(picture.bytes, units_, coded_);
            picture.bytes = coded_;
        }
        const bool taken = sink(picture);
        av_packet_unref(packet_.get());
        if (!taken) {
            return false;
        }
    }
}

std::unique_ptr<PictureEncoder> makeEncoder(const rlxrw::RlxRecordingHeader& header) {
    if (header.compression_mode == RLX_RAW) {
        return std::make_unique<RawEncoder>(std::size_t{header.width} * header.height * 2);
    }
    const ModeCodec mode = modeCodec(header.compression_mode);
    for (const char* name : mode.encoders) {
        if (auto encoder = LibraryEncoder::open(header, mode, name)) {
            ORU_LOG(Info, "{} RLX recording is coded by {}", kTagKoru, name);
            return encoder;
        }
        ORU_LOG(Debug, "{} RLX encoder {} is not available here", kTagKoru, name);
    }
    return nullptr;
}

}  // namespace oru::rlx
