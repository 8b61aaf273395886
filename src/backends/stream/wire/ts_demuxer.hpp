#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "coding/video_codec.hpp"

namespace oru::stream {

using coding::VideoCodec;

/// One packetised elementary stream packet, assembled. The receiver of it may swap `payload` away.
struct PesPacket {
    std::vector<uint8_t> payload;
    uint64_t pts = 0;
    bool has_pts = false;
    bool damaged = false;  ///< a transport packet inside it was lost, or its announced length was not reached
};

/// Where the demultiplexer puts what it found; called on the thread that feeds it.
class TsSink {
public:
    virtual ~TsSink() = default;
    virtual void onVideo(PesPacket& packet) = 0;
    virtual void onData(PesPacket& packet) = 0;
};

/// Demultiplexer of one MPEG-2 transport stream (ISO/IEC 13818-1) with one video stream and one KLV data stream
/// (SMPTE RP 217, registration "KLVA"); everything else in it is skipped. Its input is not trusted: sizes are bounded,
/// sections are checked with their CRC, and nothing it is fed can make it read or write outside its buffers.
/// A video packet of open length ends when the data packet that describes it is complete.
/// Threads: one.
class TsDemuxer {
public:
    static constexpr std::size_t kPacketBytes = 188;
    static constexpr std::size_t kMaxVideoBytes = std::size_t{4} << 20;
    static constexpr std::size_t kMaxDataBytes = std::size_t{128} << 10;

    explicit TsDemuxer(TsSink& packetSink);

    /// Takes any number of whole transport packets; a rest shorter than one is ignored.
    void feed(const uint8_t* data, std::size_t size);
    /// Forgets the programme and everything half assembled: for a new connection.
    void reset();
    [[nodiscard]] VideoCodec videoCodec() const { return codec; }
    [[nodiscard]] uint64_t continuityErrors() const { return errors; }

private:
    static constexpr uint16_t kNoPid = 0xFFFF;

    struct Track {
        uint16_t pid = kNoPid;
        std::size_t limit = 0;
        PesPacket packet;
        std::size_t announced = 0;  ///< payload bytes by the PES header, 0 = open length
        bool open = false;
        bool counting = false;
        uint8_t counter = 0;
    };

    void feedPacket(const uint8_t* packet);
    void readProgramAssociation(const uint8_t* payload, std::size_t size);
    void readProgramMap(const uint8_t* payload, std::size_t size);
    void readTrack(Track& track, const uint8_t* packet, const uint8_t* payload, std::size_t size, bool start);
    bool checkContinuity(Track& track, uint8_t counter);
    void startPes(Track& track, const uint8_t* payload, std::size_t size);
    void append(Track& track, const uint8_t* payload, std::size_t size);
    void finish(Track& track);
    static void assign(Track& track, uint16_t pid);

    TsSink& sink;
    Track video;
    Track data;
    uint16_t mapPid = kNoPid;
    VideoCodec codec = VideoCodec::NONE;
    uint64_t errors = 0;
};

}  // namespace oru::stream
