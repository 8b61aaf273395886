#include <algorithm>
#include <cstring>
#include <thread>

#include "backends/rlx/codec_names.hpp"
#include "utils/yuv.hpp"

namespace oru::rlx {

namespace {

constexpr int kMaxThreads = 4;

class RawDecoder final : public PictureDecoder {
public:
    explicit RawDecoder(std::size_t size) : size_(size) {}

    DecodeResult decode(ByteView stored, unsigned char* yuyv) override {
        if (stored.size() != size_) {
            return DecodeResult::FAILED;
        }
        if (yuyv != nullptr) {
            std::memcpy(yuyv, stored.data(), size_);
        }
        return DecodeResult::PICTURE;
    }
    void reset() override {}

private:
    std::size_t size_;
};

class LibraryDecoder final : public PictureDecoder {
public:
    static std::unique_ptr<PictureDecoder> open(const rlxrw::RlxRecordingHeader& header, const ModeCodec& mode,
                                                ByteView codec_private);

    DecodeResult decode(ByteView stored, unsigned char* yuyv) override;
    void reset() override { avcodec_flush_buffers(context_.get()); }

private:
    bool copyOut(unsigned char* yuyv) const;

    Context context_;
    Frame frame_{av_frame_alloc()};
    Packet packet_{av_packet_alloc()};
    Bytes padded_;
    int width_ = 0;  // the recording's; the coded stream may claim another size
    int height_ = 0;
};

std::unique_ptr<PictureDecoder> LibraryDecoder::open(const rlxrw::RlxRecordingHeader& header, const ModeCodec& mode,
                                                     ByteView codec_private) {
    const AVCodec* codec = avcodec_find_decoder(mode.decoder);
    auto decoder = std::make_unique<LibraryDecoder>();
    decoder->context_.reset(codec == nullptr ? nullptr : avcodec_alloc_context3(codec));
    if (decoder->context_ == nullptr || decoder->frame_ == nullptr || decoder->packet_ == nullptr) {
        return nullptr;
    }
    AVCodecContext& context = *decoder->context_;
    if (!codec_private.empty()) {
        context.extradata = static_cast<uint8_t*>(av_mallocz(codec_private.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        if (context.extradata == nullptr) {
            return nullptr;
        }
        std::memcpy(context.extradata, codec_private.data(), codec_private.size());
        context.extradata_size = static_cast<int>(codec_private.size());
    }
    decoder->width_ = context.width = static_cast<int>(header.width);
    decoder->height_ = context.height = static_cast<int>(header.height);
    context.bits_per_coded_sample = 16;
    context.codec_tag = mode.decoder == AV_CODEC_ID_FFVHUFF ? MKTAG('F', 'F', 'V', 'H') : 0;
    context.thread_count = std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, kMaxThreads);
    context.thread_type = FF_THREAD_SLICE;  // one picture in, one out
    context.flags |= AV_CODEC_FLAG_LOW_DELAY;
    context.err_recognition = AV_EF_CRCCHECK | AV_EF_EXPLODE;
    return avcodec_open2(&context, codec, nullptr) < 0 ? nullptr : std::move(decoder);
}

DecodeResult LibraryDecoder::decode(ByteView stored, unsigned char* yuyv) {
    // The decoder may read a little past the end.
    padded_.resize(stored.size() + AV_INPUT_BUFFER_PADDING_SIZE);
    std::memcpy(padded_.data(), stored.data(), stored.size());
    std::memset(padded_.data() + stored.size(), 0, AV_INPUT_BUFFER_PADDING_SIZE);
    packet_->data = padded_.data();
    packet_->size = static_cast<int>(stored.size());
    const int sent = avcodec_send_packet(context_.get(), packet_.get());
    if (sent < 0) {
        return DecodeResult::FAILED;
    }
    const int received = avcodec_receive_frame(context_.get(), frame_.get());
    if (received == AVERROR(EAGAIN)) {
        return DecodeResult::NOTHING;
    }
    const bool right = received >= 0 && copyOut(yuyv);
    av_frame_unref(frame_.get());
    return right ? DecodeResult::PICTURE : DecodeResult::FAILED;
}

bool LibraryDecoder::copyOut(unsigned char* yuyv) const {
    const bool right_size = frame_->width == width_ && frame_->height == height_;
    const bool is_420 = frame_->format == AV_PIX_FMT_YUV420P || frame_->format == AV_PIX_FMT_YUVJ420P;
    const bool is_422 = frame_->format == AV_PIX_FMT_YUV422P || frame_->format == AV_PIX_FMT_YUVJ422P;
    if (!right_size || !(is_420 || is_422) || frame_->decode_error_flags != 0) {
        return false;
    }
    if (yuyv != nullptr) {
        const ConstYuvPlanes planes{frame_->data[0],    frame_->data[1],    frame_->data[2],
                                    stepOf(*frame_, 0), stepOf(*frame_, 1), stepOf(*frame_, 2)};
        const auto width = static_cast<std::size_t>(frame_->width);
        (is_420 ? i420ToYuyv : i422ToYuyv)(planes, yuyv, width * 2, width, static_cast<std::size_t>(frame_->height));
    }
    return true;
}

}  // namespace

std::unique_ptr<PictureDecoder> makeDecoder(const rlxrw::RlxRecordingHeader& header, const Bytes& codec_private) {
    if (header.compression_mode == RLX_RAW) {
        return std::make_unique<RawDecoder>(std::size_t{header.width} * header.height * 2);
    }
    const ModeCodec mode = modeCodec(header.compression_mode);
    const bool has_bitmap_header = header.compression_mode == RLX_LOSSLESS;
    if (mode.decoder == AV_CODEC_ID_NONE || (has_bitmap_header && codec_private.size() < kBitmapHeaderSize)) {
        return nullptr;
    }
    const ByteView all(codec_private);
    return LibraryDecoder::open(header, mode, has_bitmap_header ? all.subspan(kBitmapHeaderSize) : all);
}

}  // namespace oru::rlx
