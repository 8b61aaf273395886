#include "backends/rlx/file/VideoFile.hpp"

extern "C" {
#include <libavformat/avformat.h>
}

#include <fmt/core.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace oru::rlx {
namespace {

constexpr int kMicrosecondsPerSecond = 1'000'000;
constexpr std::size_t kHeldTimes = 64;

std::string reasonOf(int result) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    (void)av_strerror(result, text, sizeof text);
    return text;
}

}  // namespace

void VideoFile::CloseMuxer::operator()(AVFormatContext* context) const {
    if (context->pb != nullptr) {
        (void)avio_closep(&context->pb);
    }
    avformat_free_context(context);
}

void VideoFile::FreePacket::operator()(AVPacket* used) const {
    av_packet_free(&used);
}

VideoFile::VideoFile() : packet(av_packet_alloc()), timesUs(kHeldTimes) {}

VideoFile::~VideoFile() = default;

bool VideoFile::fail(std::string reason) {
    if (failure.empty()) {
        failure = std::move(reason);
    }
    return false;
}

ERROR_CODE VideoFile::open(const std::string& path, const rlxrw::RlxRecordingHeader& facts) {
    filePath = path;
    const bool playable = facts.compression_mode == RLX_H264 || facts.compression_mode == RLX_H265;
    if (!playable) {
        (void)fail("an MP4 file holds h264 or h265");
        return INVALID_PARAMETER;
    }
    imageEncoder = makeEncoder(facts);
    if (imageEncoder == nullptr) {
        (void)fail("no encoder is available");
        return RLX_CODEC_UNAVAILABLE;
    }
    sink = [this](const CodedImage& image) { return writeImage(image); };
    return openMuxer(facts) ? SUCCESS : FAILURE;
}

bool VideoFile::openMuxer(const rlxrw::RlxRecordingHeader& facts) {
    AVFormatContext* context = nullptr;
    if (avformat_alloc_output_context2(&context, nullptr, "mp4", filePath.c_str()) < 0) {
        return fail("no MP4 writer is available");
    }
    muxer.reset(context);
    AVStream* stream = avformat_new_stream(context, nullptr);
    const oru::Bytes& extra = imageEncoder->codecPrivate();
    auto* copy = static_cast<uint8_t*>(av_mallocz(extra.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (stream == nullptr || copy == nullptr || packet == nullptr) {
        av_free(copy);
        return fail("out of memory");
    }
    std::copy(extra.begin(), extra.end(), copy);
    const bool h265 = facts.compression_mode == RLX_H265;
    AVCodecParameters& parameters = *stream->codecpar;
    parameters.codec_type = AVMEDIA_TYPE_VIDEO;
    parameters.codec_id = h265 ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264;
    parameters.codec_tag = h265 ? MKTAG('h', 'v', 'c', '1') : 0;
    parameters.width = static_cast<int>(facts.width);
    parameters.height = static_cast<int>(facts.height);
    parameters.extradata = copy;
    parameters.extradata_size = static_cast<int>(extra.size());
    stream->time_base = {1, kMicrosecondsPerSecond};
    int result = avio_open(&context->pb, filePath.c_str(), AVIO_FLAG_WRITE);
    if (result >= 0) {
        result = avformat_write_header(context, nullptr);
    }
    return result >= 0 || fail(fmt::format("{} cannot be created: {}", filePath, reasonOf(result)));
}

bool VideoFile::write(const unsigned char* pixels, Timestamp time) {
    if (frameCount == 0) {
        firstTime = time;
    }
    const auto since = static_cast<int64_t>((time > firstTime ? time - firstTime : 0) / 1000);
    lastTimeUs = std::max(lastTimeUs + 1, since);
    timesUs[frameCount % kHeldTimes] = lastTimeUs;
    return imageEncoder->encode(pixels, frameCount++, sink) || fail("the encoder failed");
}

bool VideoFile::writeImage(const CodedImage& image) {
    if (av_new_packet(packet.get(), static_cast<int>(image.bytes.size())) < 0) {
        return fail("out of memory");
    }
    std::memcpy(packet->data, image.bytes.data(), image.bytes.size());
    const AVStream& stream = *muxer->streams[0];
    const int64_t time = timesUs[image.number % kHeldTimes];
    packet->pts = packet->dts = av_rescale_q(time, {1, kMicrosecondsPerSecond}, stream.time_base);
    packet->flags = image.key ? AV_PKT_FLAG_KEY : 0;
    const int result = av_interleaved_write_frame(muxer.get(), packet.get());
    av_packet_unref(packet.get());
    return result >= 0 || fail(fmt::format("{} cannot be written: {}", filePath, reasonOf(result)));
}

bool VideoFile::finish() {
    if (!imageEncoder->finish(sink)) {
        return fail("the encoder failed");
    }
    int result = av_write_trailer(muxer.get());
    const int closed = avio_closep(&muxer->pb);
    result = result < 0 ? result : closed;
    return result >= 0 || fail(fmt::format("{} cannot be completed: {}", filePath, reasonOf(result)));
}

}  // namespace oru::rlx
