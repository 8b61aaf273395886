#include <algorithm>
#include <cstring>
#include <thread>

#include "backends/rlx/file/mode_codecs.hpp"
#include "utils/yuv.hpp"

namespace oru::rlx {

namespace {

constexpr int kMaxThreads = 4;

class RawDecoder final : public ImageDecoder {
public:
    explicit RawDecoder(std::size_t size) : imageBytes(size) {}

    DecodeResult decode(ByteView stored, unsigned char* yuyv) override {
        if (stored.size() != imageBytes) {
            return DecodeResult::FAILED;
        }
        if (yuyv != nullptr) {
            std::memcpy(yuyv, stored.data(), imageBytes);
        }
        return DecodeResult::PICTURE;
    }
    void reset() override {}

private:
    std::size_t imageBytes;
};

class LibraryDecoder final : public ImageDecoder {
public:
    static std::unique_ptr<ImageDecoder> open(const rlxrw::RlxRecordingHeader& header, const ModeCodec& mode,
                                              ByteView codecPrivate);

    DecodeResult decode(ByteView stored, unsigned char* yuyv) override;
    void reset() override { avcodec_flush_buffers(codecContext.get()); }

private:
    bool copyOut(unsigned char* yuyv) const;

    Context codecContext;
    Frame frame{av_frame_alloc()};
    Packet packet{av_packet_alloc()};
    Bytes padded;
    int width = 0;  // the recording's; the coded stream may claim another size
    int height = 0;
};

std::unique_ptr<ImageDecoder> LibraryDecoder::open(const rlxrw::RlxRecordingHeader& header, const ModeCodec& mode,
                                                   ByteView codecPrivate) {
    const AVCodec* codec = avcodec_find_decoder(mode.decoder);
    auto decoder = std::make_unique<LibraryDecoder>();
    decoder->codecContext.reset(codec == nullptr ? nullptr : avcodec_alloc_context3(codec));
    if (decoder->codecContext == nullptr || decoder->frame == nullptr || decoder->packet == nullptr) {
        return nullptr;
    }
    AVCodecContext& context = *decoder->codecContext;
    if (!codecPrivate.empty()) {
        context.extradata = static_cast<uint8_t*>(av_mallocz(codecPrivate.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        if (context.extradata == nullptr) {
            return nullptr;
        }
        std::memcpy(context.extradata, codecPrivate.data(), codecPrivate.size());
        context.extradata_size = static_cast<int>(codecPrivate.size());
    }
    decoder->width = context.width = static_cast<int>(header.width);
    decoder->height = context.height = static_cast<int>(header.height);
    context.bits_per_coded_sample = 16;
    context.codec_tag = mode.decoder == AV_CODEC_ID_FFVHUFF ? MKTAG('F', 'F', 'V', 'H') : 0;
    context.thread_count = std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, kMaxThreads);
    context.thread_type = FF_THREAD_SLICE;  // one image in, one out
    context.flags |= AV_CODEC_FLAG_LOW_DELAY;
    context.err_recognition = AV_EF_CRCCHECK | AV_EF_EXPLODE;
    return avcodec_open2(&context, codec, nullptr) < 0 ? nullptr : std::move(decoder);
}

DecodeResult LibraryDecoder::decode(ByteView stored, unsigned char* yuyv) {
    // The decoder may read a little past the end.
    padded.resize(stored.size() + AV_INPUT_BUFFER_PADDING_SIZE);
    std::memcpy(padded.data(), stored.data(), stored.size());
    std::memset(padded.data() + stored.size(), 0, AV_INPUT_BUFFER_PADDING_SIZE);
    packet->data = padded.data();
    packet->size = static_cast<int>(stored.size());
    const int sent = avcodec_send_packet(codecContext.get(), packet.get());
    if (sent < 0) {
        return DecodeResult::FAILED;
    }
    const int received = avcodec_receive_frame(codecContext.get(), frame.get());
    if (received == AVERROR(EAGAIN)) {
        return DecodeResult::NOTHING;
    }
    const bool right = received >= 0 && copyOut(yuyv);
    av_frame_unref(frame.get());
    return right ? DecodeResult::PICTURE : DecodeResult::FAILED;
}

bool LibraryDecoder::copyOut(unsigned char* yuyv) const {
    const bool rightSize = frame->width == width && frame->height == height;
    const bool is420 = frame->format == AV_PIX_FMT_YUV420P || frame->format == AV_PIX_FMT_YUVJ420P;
    const bool is422 = frame->format == AV_PIX_FMT_YUV422P || frame->format == AV_PIX_FMT_YUVJ422P;
    if (!rightSize || !(is420 || is422) || frame->decode_error_flags != 0) {
        return false;
    }
    if (yuyv != nullptr) {
        const ConstYuvPlanes planes{frame->data[0],    frame->data[1],    frame->data[2],
                                    stepOf(*frame, 0), stepOf(*frame, 1), stepOf(*frame, 2)};
        const auto columns = static_cast<std::size_t>(frame->width);
        (is420 ? i420ToYuyv : i422ToYuyv)(planes, yuyv, columns * 2, columns, static_cast<std::size_t>(frame->height));
    }
    return true;
}

}  // namespace

std::unique_ptr<ImageDecoder> makeDecoder(const rlxrw::RlxRecordingHeader& header, const Bytes& codecPrivate) {
    if (header.compression_mode == RLX_RAW) {
        return std::make_unique<RawDecoder>(std::size_t{header.width} * header.height * 2);
    }
    const ModeCodec mode = modeCodec(header.compression_mode);
    const bool hasBitmapHeader = header.compression_mode == RLX_LOSSLESS;
    if (mode.decoder == AV_CODEC_ID_NONE || (hasBitmapHeader && codecPrivate.size() < kBitmapHeaderSize)) {
        return nullptr;
    }
    const ByteView all(codecPrivate);
    return LibraryDecoder::open(header, mode, hasBitmapHeader ? all.subspan(kBitmapHeaderSize) : all);
}

}  // namespace oru::rlx
