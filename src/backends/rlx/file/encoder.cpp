#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "backends/rlx/container/bitmap_header.hpp"
#include "backends/rlx/file/codec.hpp"
#include "backends/rlx/file/mode_codecs.hpp"
#include "coding/VideoEncoder.hpp"
#include "coding/image_format.hpp"
#include "coding/nal_units.hpp"
#include "logging/log.hpp"
#include "logging/messages.hpp"

namespace oru::rlx {

namespace {

using coding::VideoCodec;
using coding::VideoEncoder;

/// Stores the camera's bytes as they are.
class RawEncoder final : public ImageEncoder {
public:
    explicit RawEncoder(std::size_t size) : imageBytes(size) {}

    const Bytes& codecPrivate() const override { return noBytes; }
    bool encode(const unsigned char* yuyv, uint64_t number, const CodedSink& sink) override {
        return sink({{yuyv, imageBytes}, true, number});
    }
    bool finish(const CodedSink& /*sink*/) override { return true; }

private:
    std::size_t imageBytes;
    Bytes noBytes;
};

/// Stores H.264 and H.265 with lengths instead of start codes, and their parameter sets in the CodecPrivate.
class CodecEncoder final : public ImageEncoder {
public:
    [[nodiscard]] bool open(const coding::Encoder& candidate, const VideoEncoder::Settings& settings);

    const Bytes& codecPrivate() const override { return privateBytes; }
    bool encode(const unsigned char* yuyv, uint64_t number, const CodedSink& sink) override;
    bool finish(const CodedSink& sink) override;

private:
    [[nodiscard]] std::optional<Bytes> makeCodecPrivate(const VideoEncoder::Settings& settings) const;
    [[nodiscard]] bool handOut(const VideoEncoder::Coded& coded, const CodedSink& sink);

    VideoEncoder encoder;
    coding::AvPtr<AVFrame> image;
    bool byteStream = false;
    Bytes privateBytes;
    Bytes codedBytes;
    std::vector<ByteView> units;
};

bool CodecEncoder::open(const coding::Encoder& candidate, const VideoEncoder::Settings& settings) {
    image = coding::makeImage(settings.codec, settings.width, settings.height);
    if (image == nullptr || !encoder.open(candidate, settings)) {
        return false;
    }
    byteStream = settings.codec == VideoCodec::H264 || settings.codec == VideoCodec::H265;
    std::optional<Bytes> bytes = makeCodecPrivate(settings);
    if (bytes.has_value()) {
        privateBytes = std::move(*bytes);
    }
    return bytes.has_value();
}

std::optional<Bytes> CodecEncoder::makeCodecPrivate(const VideoEncoder::Settings& settings) const {
    const ByteView extra = encoder.extraData();
    switch (settings.codec) {
        case VideoCodec::H264:
            return coding::avcConfiguration(extra);
        case VideoCodec::H265:
            return coding::hevcConfiguration(extra);
        case VideoCodec::FFVHUFF:
            return bitmapHeader(kFfvhuff, settings.width, settings.height, extra);
        default:
            return Bytes(extra.begin(), extra.end());
    }
}

bool CodecEncoder::encode(const unsigned char* yuyv, uint64_t number, const CodedSink& sink) {
    if (!coding::makeWritable(*image)) {
        return false;
    }
    coding::packedToPlanar(yuyv, *image);
    const auto output = [&](const VideoEncoder::Coded& coded) { return handOut(coded, sink); };
    return encoder.encode(*image, static_cast<int64_t>(number), false, output);
}

bool CodecEncoder::finish(const CodedSink& sink) {
    return encoder.finish([&](const VideoEncoder::Coded& coded) { return handOut(coded, sink); });
}

bool CodecEncoder::handOut(const VideoEncoder::Coded& coded, const CodedSink& sink) {
    CodedImage stored{{coded.data, coded.size}, coded.key_frame, static_cast<uint64_t>(coded.pts)};
    if (byteStream) {
        codedBytes.clear();
        coding::putLengthPrefixed(stored.bytes, units, codedBytes);
        stored.bytes = codedBytes;
    }
    return sink(stored);
}

VideoEncoder::Settings settingsOf(const rlxrw::RlxRecordingHeader& header) {
    const bool intraOnly = isIntraOnly(header.compression_mode);
    const int rate = std::max(1, static_cast<int>(std::lround(header.fps)));
    VideoEncoder::Settings settings;
    settings.codec = modeCodec(header.compression_mode);
    settings.use = coding::CodecUse::RECORDING;
    settings.width = header.width;
    settings.height = header.height;
    settings.fps = rate;
    settings.ticks_per_second = rate;
    settings.bitrate = intraOnly ? 0 : header.bitrate;
    settings.gop_size = intraOnly ? 1 : rate;
    return settings;
}

}  // namespace

bool isIntraOnly(RLX_COMPRESSION_MODE mode) {
    return mode == RLX_RAW || mode == RLX_LOSSLESS || mode == RLX_FFV1;
}

std::unique_ptr<ImageEncoder> makeEncoder(const rlxrw::RlxRecordingHeader& header) {
    if (header.compression_mode == RLX_RAW) {
        return std::make_unique<RawEncoder>(std::size_t{header.width} * header.height * 2);
    }
    const VideoEncoder::Settings settings = settingsOf(header);
    for (const coding::Encoder& candidate : coding::encoders()) {
        if (!coding::serves(candidate, settings.codec, settings.use)) {
            continue;
        }
        auto encoder = std::make_unique<CodecEncoder>();
        if (encoder->open(candidate, settings)) {
            ORU_LOG(Info, "{} RLX recording is coded by {}", kTagKoru, candidate.name);
            return encoder;
        }
        ORU_LOG(Debug, "{} RLX encoder {} is not available here", kTagKoru, candidate.name);
    }
    return nullptr;
}

}  // namespace oru::rlx
