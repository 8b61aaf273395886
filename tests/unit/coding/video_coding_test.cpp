extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
#include <libavutil/opt.h>
}

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "coding/VideoDecoder.hpp"
#include "coding/VideoEncoder.hpp"
#include "coding/image_format.hpp"
#include "support/transport_suppressions.hpp"
#include "utils/bytes.hpp"

namespace oru::coding {
namespace {

constexpr uint32_t kWidth = 96;
constexpr uint32_t kHeight = 64;
constexpr int kImages = 5;

// As the composed program does.
[[maybe_unused]] const bool kCodersAreSilent = [] {
    av_log_set_level(AV_LOG_QUIET);
    return true;
}();

Bytes packedImage(int number) {
    Bytes image(std::size_t{kWidth} * kHeight * 2);
    for (std::size_t i = 0; i < image.size(); ++i) {
        const bool luma = i % 2 == 0;
        image[i] = static_cast<uint8_t>(luma ? 40 + i % (kWidth * 2) / 2 + static_cast<std::size_t>(number) * 8 : 128);
    }
    return image;
}

struct CodedSequence {
    Bytes extra;
    std::vector<Bytes> images;  ///< with the padding behind
};

VideoEncoder::Settings settingsFor(const Encoder& encoder, CodecUse use) {
    const bool lossless = encoder.codec == VideoCodec::FFVHUFF || encoder.codec == VideoCodec::FFV1;
    const uint32_t bitrate = use == CodecUse::STREAMING ? 2000 : 0;
    return {encoder.codec, use, kWidth, kHeight, 30, 90'000, bitrate, lossless ? 1 : 30};
}

CodedSequence encodeAll(VideoEncoder& encoder, VideoCodec codec) {
    CodedSequence sequence{{encoder.extraData().begin(), encoder.extraData().end()}, {}};
    const AvPtr<AVFrame> planar = makeImage(codec, kWidth, kHeight);
    const auto output = [&](const VideoEncoder::Coded& coded) {
        sequence.images.emplace_back(coded.data, coded.data + coded.size);
        sequence.images.back().resize(coded.size + VideoDecoder::kPaddingBytes);
        return true;
    };
    for (int i = 0; i < kImages; ++i) {
        EXPECT_TRUE(makeWritable(*planar));
        packedToPlanar(packedImage(i).data(), *planar);
        EXPECT_TRUE(encoder.encode(*planar, i * 3000, i == 0, output));
    }
    EXPECT_TRUE(encoder.finish(output));
    return sequence;
}

const AVFrame* decode(VideoDecoder& decoder, Bytes& padded) {
    return decoder.decode(padded.data(), padded.size() - VideoDecoder::kPaddingBytes);
}

int largestError(const Bytes& one, const Bytes& other) {
    int largest = 0;
    for (std::size_t i = 0; i < one.size(); ++i) {
        largest = std::max(largest, std::abs(int{one[i]} - int{other[i]}));
    }
    return largest;
}

class SoftwareCoding : public testing::TestWithParam<std::tuple<const char*, CodecUse>> {
protected:
    /// False: the library here was built without the encoder.
    bool openEncoder() {
        const auto named = [](const Encoder& candidate) {
            return std::string(candidate.name) == std::get<0>(GetParam());
        };
        const Encoder& candidate = *std::find_if(encoders().begin(), encoders().end(), named);
        codec = candidate.codec;
        return encoder.open(candidate, settingsFor(candidate, use));
    }
    VideoDecoder::Settings decoderFor(const CodedSequence& sequence, uint32_t width = kWidth) const {
        return {codec, use, width, kHeight, sequence.extra};
    }

    const CodecUse use = std::get<1>(GetParam());
    VideoCodec codec = VideoCodec::NONE;
    VideoEncoder encoder;
    VideoDecoder decoder;
};

TEST_P(SoftwareCoding, GivesEachImageBackAtOnce) {
    if (!openEncoder()) {
        GTEST_SKIP() << "no such encoder here";
    }
    CodedSequence sequence = encodeAll(encoder, codec);
    ASSERT_EQ(sequence.images.size(), std::size_t{kImages});
    ASSERT_TRUE(decoder.open(decoderFor(sequence)));

    for (int i = 0; i < kImages; ++i) {
        const AVFrame* image = decode(decoder, sequence.images[static_cast<std::size_t>(i)]);
        ASSERT_NE(image, nullptr) << "image " << i;
        Bytes packed(packedImage(i).size());
        planarToPacked(*image, packed.data());
        const bool lossless = codec == VideoCodec::FFVHUFF || codec == VideoCodec::FFV1;
        EXPECT_LE(largestError(packed, packedImage(i)), lossless ? 0 : 24) << "image " << i;
    }
}

TEST_P(SoftwareCoding, RefusesAnImageOfAnotherSizeAndOneThatIsCut) {
    if (!openEncoder()) {
        GTEST_SKIP() << "no such encoder here";
    }
    CodedSequence sequence = encodeAll(encoder, codec);
    const bool sizeIsCoded = codec == VideoCodec::H264 || codec == VideoCodec::H265;
    if (sizeIsCoded) {
        ASSERT_TRUE(decoder.open(decoderFor(sequence, kWidth - 16)));
        EXPECT_EQ(decode(decoder, sequence.images[0]), nullptr);
    }
    ASSERT_TRUE(decoder.open(decoderFor(sequence)));
    Bytes cut = sequence.images[0];
    const std::size_t left = codec == VideoCodec::FFVHUFF ? 0 : cut.size() / 4;  // which checks no more than that
    cut.resize(left + VideoDecoder::kPaddingBytes);

    EXPECT_EQ(decode(decoder, cut), nullptr);
    decoder.reset();
    EXPECT_NE(decode(decoder, sequence.images[0]), nullptr) << "a key image begins anew";
    decoder.close();
    EXPECT_EQ(decode(decoder, sequence.images[0]), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Recording, SoftwareCoding,
                         testing::Combine(testing::Values("libx264", "libx265", "ffvhuff", "ffv1"),
                                          testing::Values(CodecUse::RECORDING)),
                         [](const auto& instance) { return std::string(std::get<0>(instance.param)); });
INSTANTIATE_TEST_SUITE_P(Streaming, SoftwareCoding,
                         testing::Combine(testing::Values("libx264", "libx265"), testing::Values(CodecUse::STREAMING)),
                         [](const auto& instance) { return std::string(std::get<0>(instance.param)); });

TEST(EncoderTable, HoldsOnlyOptionsThatTheirEncodersKnow) {
    for (const EncoderOption& option : encoderOptions()) {
        const AVCodec* codec = avcodec_find_encoder_by_name(option.encoder);
        if (codec == nullptr) {
            continue;
        }
        const AvPtr<AVCodecContext> context(avcodec_alloc_context3(codec));
        EXPECT_GE(av_opt_set(context.get(), option.key, option.value, AV_OPT_SEARCH_CHILDREN), 0)
            << option.encoder << " " << option.key << "=" << option.value;
    }
}

}  // namespace
}  // namespace oru::coding
