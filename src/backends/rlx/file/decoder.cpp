#include <cstring>

#include "backends/rlx/container/bitmap_header.hpp"
#include "backends/rlx/file/codec.hpp"
#include "backends/rlx/file/mode_codecs.hpp"
#include "coding/VideoDecoder.hpp"
#include "coding/image_format.hpp"

namespace oru::rlx {

namespace {

using coding::VideoDecoder;

class RawDecoder final : public ImageDecoder {
public:
    explicit RawDecoder(std::size_t size) : imageBytes(size) {}

    bool decode(ByteView stored, Bytes* yuyv) override {
        if (stored.size() != imageBytes) {
            return false;
        }
        if (yuyv != nullptr) {
            yuyv->assign(stored.begin(), stored.end());
        }
        return true;
    }
    void reset() override {}

private:
    std::size_t imageBytes;
};

class CodecDecoder final : public ImageDecoder {
public:
    [[nodiscard]] bool open(const VideoDecoder::Settings& settings) {
        imageBytes = std::size_t{settings.width} * settings.height * 2;
        return decoder.open(settings);
    }

    bool decode(ByteView stored, Bytes* yuyv) override;
    void reset() override { decoder.reset(); }

private:
    VideoDecoder decoder;
    std::size_t imageBytes = 0;
    Bytes padded;
};

bool CodecDecoder::decode(ByteView stored, Bytes* yuyv) {
    padded.resize(stored.size() + VideoDecoder::kPaddingBytes);
    std::memcpy(padded.data(), stored.data(), stored.size());
    std::memset(padded.data() + stored.size(), 0, VideoDecoder::kPaddingBytes);
    const AVFrame* image = decoder.decode(padded.data(), stored.size());
    if (image != nullptr && yuyv != nullptr) {
        yuyv->resize(imageBytes);
        coding::planarToPacked(*image, yuyv->data());
    }
    return image != nullptr;
}

}  // namespace

std::unique_ptr<ImageDecoder> makeDecoder(const rlxrw::RlxRecordingHeader& header, ByteView codecPrivate) {
    if (header.compression_mode == RLX_RAW) {
        return std::make_unique<RawDecoder>(std::size_t{header.width} * header.height * 2);
    }
    const bool hasBitmapHeader = header.compression_mode == RLX_LOSSLESS;
    if (hasBitmapHeader && codecPrivate.size() < kBitmapHeaderSize) {
        return nullptr;
    }
    auto decoder = std::make_unique<CodecDecoder>();
    const bool open =
        decoder->open({modeCodec(header.compression_mode), coding::CodecUse::RECORDING, header.width, header.height,
                       hasBitmapHeader ? codecPrivate.subspan(kBitmapHeaderSize) : codecPrivate});
    return open ? std::move(decoder) : nullptr;
}

}  // namespace oru::rlx
