extern "C" {
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cmath>
#include <thread>

#include "backends/rlx/file/mode_codecs.hpp"
#include "backends/rlx/file/nal_units.hpp"
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
class RawEncoder final : public ImageEncoder {
public:
    explicit RawEncoder(std::size_t size) : imageBytes(size) {}

    const Bytes& codecPrivate() const override { return noBytes; }
    const std::string& name() const override { return encoderName; }
    bool encode(const unsigned char* yuyv, uint64_t number, const CodedSink& sink) override {
        return sink({{yuyv, imageBytes}, true, number});
    }
    bool finish(const CodedSink& /*sink*/) override { return true; }

private:
    std::size_t imageBytes;
    Bytes noBytes;
    std::string encoderName = "raw";
};

class LibraryEncoder final : public ImageEncoder {
public:
    static std::unique_ptr<ImageEncoder> open(const rlxrw::RlxRecordingHeader& header, const ModeCodec& mode,
                                              const char* name);

    const Bytes& codecPrivate() const override { return extraData; }
    const std::string& name() const override { return encoderName; }
    bool encode(const unsigned char* yuyv, uint64_t number, const CodedSink& sink) override;
    bool finish(const CodedSink& sink) override;

private:
    bool prepare(const rlxrw::RlxRecordingHeader& header, const ModeCodec& mode);
    bool makeCodecPrivate(const rlxrw::RlxRecordingHeader& header);
    bool drain(const CodedSink& sink);

    Context codecContext;
    Frame frame{av_frame_alloc()};
    Packet packet{av_packet_alloc()};
    bool byteStream = false;
    Bytes extraData;
    Bytes codedBytes;
    std::vector<ByteView> units;
    std::string encoderName;
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
        // libx265 3.5 leaks the buffers of its loop filter at the end where sample adaptive offset is off, as it is in
        // its fastest presets.
        setOption(context, "x265-params", "sao=1:log-level=none");
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
    LittleEndianWriter fields(out);
    fields.put(static_cast<uint32_t>(kBitmapHeaderSize + extra.size()));
    fields.put(width);
    fields.put(height);
    fields.put<uint16_t>(1);
    fields.put<uint16_t>(16);
    fields.put(fourcc);
    fields.put(width * height * 2);
    fields.zeros(16);
    fields.bytes(extra);
    return out;
}

std::unique_ptr<ImageEncoder> LibraryEncoder::open(const rlxrw::RlxRecordingHeader& header, const ModeCodec& mode,
                                                   const char* name) {
    const AVCodec* codec = avcodec_find_encoder_by_name(name);
    if (codec == nullptr) {
        return nullptr;
    }
    auto encoder = std::make_unique<LibraryEncoder>();
    encoder->encoderName = name;
    encoder->codecContext.reset(avcodec_alloc_context3(codec));
    if (encoder->codecContext == nullptr || !encoder->prepare(header, mode)) {
        return nullptr;
    }
    return encoder;
}

bool LibraryEncoder::prepare(const rlxrw::RlxRecordingHeader& header, const ModeCodec& mode) {
    if (frame == nullptr || packet == nullptr) {
        return false;
    }
    configure(*codecContext, header, mode.format, encoderName);
    if (avcodec_open2(codecContext.get(), nullptr, nullptr) < 0) {
        return false;
    }
    frame->format = mode.format;
    frame->width = codecContext->width;
    frame->height = codecContext->height;
    return av_frame_get_buffer(frame.get(), 0) >= 0 && makeCodecPrivate(header);
}

bool LibraryEncoder::makeCodecPrivate(const rlxrw::RlxRecordingHeader& header) {
    const ByteView extra(codecContext->extradata, static_cast<std::size_t>(std::max(0, codecContext->extradata_size)));
    std::optional<Bytes> result;
    switch (header.compression_mode) {
        case RLX_H264:
            byteStream = true;
            result = avcConfiguration(extra);
            break;
        case RLX_H265:
            byteStream = true;
            result = hevcConfiguration(extra);
            break;
        case RLX_LOSSLESS:
            result = bitmapHeader(header.width, header.height, MKTAG('F', 'F', 'V', 'H'), extra);
            break;
        default:
            result = Bytes(extra.begin(), extra.end());
    }
    extraData = result.value_or(Bytes{});
    return result.has_value();
}

bool LibraryEncoder::encode(const unsigned char* yuyv, uint64_t number, const CodedSink& sink) {
    if (av_frame_make_writable(frame.get()) < 0) {
        return false;
    }
    const YuvPlanes planes{frame->data[0],    frame->data[1],    frame->data[2],
                           stepOf(*frame, 0), stepOf(*frame, 1), stepOf(*frame, 2)};
    const auto width = static_cast<std::size_t>(frame->width);
    const auto height = static_cast<std::size_t>(frame->height);
    const bool is420 = frame->format == AV_PIX_FMT_YUV420P;
    (is420 ? yuyvToI420 : yuyvToI422)(yuyv, width * 2, planes, width, height);
    frame->pts = static_cast<int64_t>(number);
    return avcodec_send_frame(codecContext.get(), frame.get()) >= 0 && drain(sink);
}

bool LibraryEncoder::finish(const CodedSink& sink) {
    return avcodec_send_frame(codecContext.get(), nullptr) >= 0 && drain(sink);
}

bool LibraryEncoder::drain(const CodedSink& sink) {
    while (true) {
        const int result = avcodec_receive_packet(codecContext.get(), packet.get());
        if (result < 0) {
            return result == AVERROR(EAGAIN) || result == AVERROR_EOF;
        }
        CodedImage image;
        image.bytes = {packet->data, static_cast<std::size_t>(packet->size)};
        image.key = (packet->flags & AV_PKT_FLAG_KEY) != 0;
        image.number = static_cast<uint64_t>(packet->pts);
        if (byteStream) {
            codedBytes.clear();
            putLengthPrefixed(image.bytes, units, codedBytes);
            image.bytes = codedBytes;
        }
        const bool taken = sink(image);
        av_packet_unref(packet.get());
        if (!taken) {
            return false;
        }
    }
}

std::unique_ptr<ImageEncoder> makeEncoder(const rlxrw::RlxRecordingHeader& header) {
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
