#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "backends/stream/wire/ffmpeg.hpp"
#include "backends/stream/wire/ts_demuxer.hpp"

namespace oru::stream {

/// Writes one video stream and one KLV data stream into a transport stream in memory. Threads: one at a time.
class TsWriter {
public:
    static constexpr uint16_t kVideoPid = 0x100;
    static constexpr uint16_t kDataPid = 0x101;

    TsWriter();
    ~TsWriter();
    TsWriter(const TsWriter&) = delete;
    TsWriter& operator=(const TsWriter&) = delete;

    [[nodiscard]] bool open(VideoCodec codec, uint32_t width, uint32_t height);
    /// The programme tables come again before the next packet.
    void repeatTables();
    /// `pts` counts 90 kHz ticks and never decreases within a stream.
    [[nodiscard]] bool writeVideo(uint8_t* data, std::size_t size, int64_t pts, bool key_frame);
    [[nodiscard]] bool writeData(std::vector<uint8_t>& data, int64_t pts);
    /// Everything written since clear(): whole transport packets.
    [[nodiscard]] const std::vector<uint8_t>& finish();
    void clear();

private:
    struct FormatDelete {
        void operator()(AVFormatContext* context) const;
    };
    static int append(void* muxer, uint8_t* data, int size);
    [[nodiscard]] bool addStream(AVMediaType type, AVCodecID codec, uint16_t pid);
    [[nodiscard]] bool write(int stream, uint8_t* data, std::size_t size, int64_t pts, int flags);

    std::vector<uint8_t> bytes;
    std::unique_ptr<AVFormatContext, FormatDelete> context;
    AvPtr<AVPacket> packet;
};

}  // namespace oru::stream
