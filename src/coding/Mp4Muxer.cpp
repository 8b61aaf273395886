#include "coding/Mp4Muxer.hpp"

extern "C" {
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <cstring>
#include <utility>

namespace oru::coding {
namespace {

constexpr AVRational kMicroseconds{1, 1'000'000};

std::string reasonOf(int result) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    (void)av_strerror(result, text, sizeof text);
    return text;
}

}  // namespace

void Mp4Muxer::CloseOutput::operator()(AVFormatContext* context) const {
    if (context->pb != nullptr) {
        (void)avio_closep(&context->pb);
    }
    avformat_free_context(context);
}

Mp4Muxer::Mp4Muxer() : packet(av_packet_alloc()) {}
Mp4Muxer::~Mp4Muxer() = default;

bool Mp4Muxer::fail(std::string reason) {
    if (failure.empty()) {
        failure = std::move(reason);
    }
    return false;
}

bool Mp4Muxer::open(const std::string& path, const Track& track) {
    filePath = path;
    AVFormatContext* context = nullptr;
    if (avformat_alloc_output_context2(&context, nullptr, "mp4", filePath.c_str()) < 0) {
        return fail("no MP4 writer is available");
    }
    output.reset(context);
    if (packet == nullptr || !describeTrack(track)) {
        return fail("out of memory");
    }
    int result = avio_open(&context->pb, filePath.c_str(), AVIO_FLAG_WRITE);
    if (result >= 0) {
        result = avformat_write_header(context, nullptr);
    }
    return result >= 0 || fail(filePath + " cannot be created: " + reasonOf(result));
}

bool Mp4Muxer::describeTrack(const Track& track) {
    AVStream* stream = avformat_new_stream(output.get(), nullptr);
    const std::size_t size = track.configuration.size();
    auto* configuration = static_cast<uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
    if (stream == nullptr || configuration == nullptr) {
        av_free(configuration);
        return false;
    }
    std::copy(track.configuration.begin(), track.configuration.end(), configuration);
    AVCodecParameters& parameters = *stream->codecpar;
    parameters.codec_type = AVMEDIA_TYPE_VIDEO;
    parameters.codec_id = track.h265 ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264;
    parameters.codec_tag = track.h265 ? MKTAG('h', 'v', 'c', '1') : 0;
    parameters.width = static_cast<int>(track.width);
    parameters.height = static_cast<int>(track.height);
    parameters.extradata = configuration;
    parameters.extradata_size = static_cast<int>(size);
    parameters.color_space = AVCOL_SPC_SMPTE170M;
    parameters.color_range = AVCOL_RANGE_MPEG;
    parameters.color_primaries = AVCOL_PRI_BT709;
    parameters.color_trc = AVCOL_TRC_BT709;
    parameters.chroma_location = AVCHROMA_LOC_LEFT;
    stream->time_base = kMicroseconds;
    return true;
}

bool Mp4Muxer::write(ByteView image, bool key, int64_t timeUs) {
    if (av_new_packet(packet.get(), static_cast<int>(image.size())) < 0) {
        return fail("out of memory");
    }
    std::memcpy(packet->data, image.data(), image.size());
    const AVStream& stream = *output->streams[0];
    packet->pts = packet->dts = av_rescale_q(timeUs, kMicroseconds, stream.time_base);
    packet->flags = key ? AV_PKT_FLAG_KEY : 0;
    const int result = av_interleaved_write_frame(output.get(), packet.get());
    av_packet_unref(packet.get());
    return result >= 0 || fail(filePath + " cannot be written: " + reasonOf(result));
}

bool Mp4Muxer::finish() {
    int result = av_write_trailer(output.get());
    const int closed = avio_closep(&output->pb);
    result = result < 0 ? result : closed;
    return result >= 0 || fail(filePath + " cannot be completed: " + reasonOf(result));
}

}  // namespace oru::coding
