#include "backends/stream/wire/TsWriter.hpp"

namespace oru::stream {
namespace {

constexpr int kVideoStream = 0;
constexpr int kDataStream = 1;
constexpr int kIoBytes = 1 << 15;
constexpr std::size_t kUsualFrameBytes = std::size_t{1} << 18;

}  // namespace

TsWriter::TsWriter() = default;
TsWriter::~TsWriter() = default;

void TsWriter::FormatDelete::operator()(AVFormatContext* format) const {
    if (format->pb != nullptr) {
        av_freep(&format->pb->buffer);
        avio_context_free(&format->pb);
    }
    avformat_free_context(format);
}

int TsWriter::append(void* muxer, uint8_t* data, int size) {
    std::vector<uint8_t>& bytes = static_cast<TsWriter*>(muxer)->bytes;
    bytes.insert(bytes.end(), data, data + size);
    return size;
}

bool TsWriter::addStream(AVMediaType type, AVCodecID codec, uint16_t pid) {
    AVStream* stream = avformat_new_stream(context.get(), nullptr);
    if (stream == nullptr) {
        return false;
    }
    stream->codecpar->codec_type = type;
    stream->codecpar->codec_id = codec;
    stream->id = pid;
    stream->time_base = {1, 90000};
    return true;
}

bool TsWriter::open(VideoCodec codec, uint32_t width, uint32_t height) {
    AVFormatContext* made = nullptr;
    if (avformat_alloc_output_context2(&made, nullptr, "mpegts", nullptr) < 0) {
        return false;
    }
    context.reset(made);
    packet.reset(av_packet_alloc());
    auto* buffer = static_cast<uint8_t*>(av_malloc(kIoBytes));
    made->pb = avio_alloc_context(buffer, kIoBytes, 1, this, nullptr, &TsWriter::append, nullptr);
    const AVCodecID id = codec == VideoCodec::H265 ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264;
    if (packet == nullptr || made->pb == nullptr || !addStream(AVMEDIA_TYPE_VIDEO, id, kVideoPid) ||
        !addStream(AVMEDIA_TYPE_DATA, AV_CODEC_ID_SMPTE_KLV, kDataPid)) {
        return false;
    }
    made->streams[kVideoStream]->codecpar->width = static_cast<int>(width);
    made->streams[kVideoStream]->codecpar->height = static_cast<int>(height);
    made->max_delay = 0;
    made->flags |= AVFMT_FLAG_FLUSH_PACKETS;
    av_opt_set(made->priv_data, "omit_video_pes_length", "1", 0);
    av_opt_set(made->priv_data, "pat_period", "0.2", 0);
    bytes.reserve(kUsualFrameBytes);
    return avformat_write_header(made, nullptr) >= 0;
}

void TsWriter::repeatTables() {
    av_opt_set(context->priv_data, "mpegts_flags", "resend_headers", 0);
}

bool TsWriter::write(int stream, uint8_t* data, std::size_t size, int64_t pts, int flags) {
    packet->stream_index = stream;
    packet->data = data;
    packet->size = static_cast<int>(size);
    packet->pts = pts;
    packet->dts = pts;
    packet->flags = flags;
    const bool written = av_write_frame(context.get(), packet.get()) >= 0;
    av_packet_unref(packet.get());
    return written;
}

bool TsWriter::writeVideo(uint8_t* data, std::size_t size, int64_t pts, bool key_frame) {
    return write(kVideoStream, data, size, pts, key_frame ? AV_PKT_FLAG_KEY : 0);
}

bool TsWriter::writeData(std::vector<uint8_t>& data, int64_t pts) {
    return write(kDataStream, data.data(), data.size(), pts, AV_PKT_FLAG_KEY);
}

const std::vector<uint8_t>& TsWriter::finish() {
    av_write_frame(context.get(), nullptr);
    avio_flush(context->pb);
    return bytes;
}

void TsWriter::clear() {
    bytes.clear();
}

}  // namespace oru::stream
