#include "backends/rlx/file/VideoFile.hpp"

#include <algorithm>

namespace oru::rlx {

namespace {

constexpr const char* kEncoderFailed = "the encoder failed";

}  // namespace

VideoFile::VideoFile()
    : sink([this](const CodedImage& image) {
          return muxer.write(image.bytes, image.key, timesUs[image.number % kHeldTimes]);
      }) {}

ERROR_CODE VideoFile::open(const std::string& path, const rlxrw::RlxRecordingHeader& facts) {
    const bool h265 = facts.compression_mode == RLX_H265;
    if (!h265 && facts.compression_mode != RLX_H264) {
        failure = "an MP4 file holds h264 or h265";
        return INVALID_PARAMETER;
    }
    imageEncoder = makeEncoder(facts);
    if (imageEncoder == nullptr) {
        failure = "no encoder is available";
        return RLX_CODEC_UNAVAILABLE;
    }
    return muxer.open(path, {h265, facts.width, facts.height, imageEncoder->codecPrivate()}) ? SUCCESS : FAILURE;
}

bool VideoFile::write(const unsigned char* pixels, Timestamp time) {
    if (frameCount == 0) {
        firstTime = time;
    }
    const auto since = static_cast<int64_t>((time > firstTime ? time - firstTime : 0) / 1000);
    lastTimeUs = std::max(lastTimeUs + 1, since);
    timesUs[frameCount % kHeldTimes] = lastTimeUs;
    const bool coded = imageEncoder->encode(pixels, frameCount++, sink);
    failure = coded ? "" : kEncoderFailed;
    return coded;
}

bool VideoFile::finish() {
    const bool coded = imageEncoder->finish(sink);
    failure = coded ? "" : kEncoderFailed;
    return coded && muxer.finish();
}

}  // namespace oru::rlx
