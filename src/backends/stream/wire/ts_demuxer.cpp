#include "backends/stream/wire/ts_demuxer.hpp"

#include <algorithm>
#include <cstring>

extern "C" {
#include <libavutil/crc.h>
}

namespace oru::stream {
namespace {

constexpr uint8_t kSync = 0x47;
constexpr uint8_t kTypeH264 = 0x1B;
constexpr uint8_t kTypeH265 = 0x24;
constexpr uint8_t kTypePrivate = 0x06;
constexpr uint8_t kTypeMetadata = 0x15;
constexpr uint8_t kTableAssociation = 0x00;
constexpr uint8_t kTableMap = 0x02;
constexpr uint8_t kRegistration = 0x05;
constexpr std::size_t kSectionHeader = 8;
constexpr std::size_t kCrcBytes = 4;

uint16_t pidAt(const uint8_t* at) {
    return static_cast<uint16_t>((at[0] & 0x1F) << 8 | at[1]);
}

std::size_t lengthAt(const uint8_t* at) {
    return static_cast<std::size_t>((at[0] & 0x0F) << 8 | at[1]);
}

/// The body of a section that fits into one packet and whose CRC is right; an empty span otherwise.
struct Section {
    const uint8_t* first = nullptr;
    const uint8_t* last = nullptr;
};

Section section(uint8_t table, const uint8_t* payload, std::size_t size) {
    if (size < 1 || std::size_t{1} + payload[0] + kSectionHeader > size) {
        return {};
    }
    const uint8_t* start = payload + 1 + payload[0];
    const std::size_t room = static_cast<std::size_t>(payload + size - start);
    const std::size_t length = 3 + lengthAt(start + 1);
    if (start[0] != table || length > room || length < kSectionHeader + kCrcBytes) {
        return {};
    }
    // Over a section with its own CRC the remainder is zero.
    if (av_crc(av_crc_get_table(AV_CRC_32_IEEE), UINT32_MAX, start, length) != 0) {
        return {};
    }
    return {start + kSectionHeader, start + length - kCrcBytes};
}

bool registeredAsKlv(const uint8_t* at, const uint8_t* last) {
    while (last - at >= 2 && last - at >= 2 + at[1]) {
        if (at[0] == kRegistration && at[1] >= 4 && std::memcmp(at + 2, "KLVA", 4) == 0) {
            return true;
        }
        at += 2 + at[1];
    }
    return false;
}

uint64_t timestampAt(const uint8_t* at) {
    return static_cast<uint64_t>(at[0] >> 1 & 7) << 30 | static_cast<uint64_t>(at[1]) << 22 |
           static_cast<uint64_t>(at[2] >> 1) << 15 | static_cast<uint64_t>(at[3]) << 7 | at[4] >> 1;
}

}  // namespace

TsDemuxer::TsDemuxer(TsSink& packetSink) : sink(packetSink) {
    video.limit = kMaxVideoBytes;
    data.limit = kMaxDataBytes;
}

void TsDemuxer::reset() {
    assign(video, kNoPid);
    assign(data, kNoPid);
    mapPid = kNoPid;
    codec = VideoCodec::NONE;
}

void TsDemuxer::assign(Track& track, uint16_t pid) {
    if (track.pid == pid) {
        return;
    }
    track.pid = pid;
    track.open = false;
    track.counting = false;
}

void TsDemuxer::feed(const uint8_t* bytes, std::size_t size) {
    for (; size >= kPacketBytes; bytes += kPacketBytes, size -= kPacketBytes) {
        feedPacket(bytes);
    }
}

void TsDemuxer::feedPacket(const uint8_t* packet) {
    constexpr std::size_t kHeader = 4;
    const bool payloadPresent = (packet[3] & 0x10) != 0;
    if (packet[0] != kSync || !payloadPresent) {
        return;
    }
    std::size_t offset = kHeader;
    if ((packet[3] & 0x20) != 0) {
        offset += std::size_t{1} + packet[kHeader];
    }
    if (offset >= kPacketBytes) {
        return;
    }
    const uint16_t pid = pidAt(packet + 1);
    const bool start = (packet[1] & 0x40) != 0;
    const uint8_t* payload = packet + offset;
    const std::size_t size = kPacketBytes - offset;
    if (pid == 0 && start) {
        readProgramAssociation(payload, size);
    } else if (pid == mapPid && start) {
        readProgramMap(payload, size);
    } else if (pid == video.pid) {
        readTrack(video, packet, payload, size, start);
    } else if (pid == data.pid) {
        readTrack(data, packet, payload, size, start);
    }
}

void TsDemuxer::readProgramAssociation(const uint8_t* payload, std::size_t size) {
    const Section found = section(kTableAssociation, payload, size);
    for (const uint8_t* at = found.first; found.last - at >= 4; at += 4) {
        const bool network = at[0] == 0 && at[1] == 0;
        if (!network) {
            mapPid = pidAt(at + 2);
            return;
        }
    }
}

void TsDemuxer::readProgramMap(const uint8_t* payload, std::size_t size) {
    const Section found = section(kTableMap, payload, size);
    if (found.last - found.first < 4) {
        return;
    }
    uint16_t videoPid = kNoPid;
    uint16_t dataPid = kNoPid;
    VideoCodec kind = VideoCodec::NONE;
    const std::size_t programInfo = lengthAt(found.first + 2);
    const uint8_t* at =
        found.first + 4 + std::min<std::size_t>(programInfo, static_cast<std::size_t>(found.last - found.first - 4));
    while (found.last - at >= 5) {
        const std::size_t info = std::min<std::size_t>(lengthAt(at + 3), static_cast<std::size_t>(found.last - at - 5));
        const bool carriesKlv =
            (at[0] == kTypePrivate || at[0] == kTypeMetadata) && registeredAsKlv(at + 5, at + 5 + info);
        if (videoPid == kNoPid && (at[0] == kTypeH264 || at[0] == kTypeH265)) {
            videoPid = pidAt(at + 1);
            kind = at[0] == kTypeH264 ? VideoCodec::H264 : VideoCodec::H265;
        } else if (dataPid == kNoPid && carriesKlv) {
            dataPid = pidAt(at + 1);
        }
        at += 5 + info;
    }
    assign(video, videoPid);
    assign(data, dataPid);
    codec = kind;
}

bool TsDemuxer::checkContinuity(Track& track, uint8_t counter) {
    const bool repeated = track.counting && counter == track.counter;
    const bool expected = !track.counting || counter == ((track.counter + 1) & 0x0F);
    track.counting = true;
    track.counter = counter;
    if (!expected && !repeated) {
        ++errors;
        track.packet.damaged = true;
    }
    return !repeated;
}

void TsDemuxer::readTrack(Track& track, const uint8_t* packet, const uint8_t* payload, std::size_t size, bool start) {
    const bool discontinuity = (packet[3] & 0x20) != 0 && packet[4] > 0 && (packet[5] & 0x80) != 0;
    if (discontinuity) {
        track.counting = false;
    }
    if (!checkContinuity(track, packet[3] & 0x0F)) {
        return;
    }
    if (start) {
        finish(track);
        startPes(track, payload, size);
    } else if (track.open) {
        append(track, payload, size);
    }
}

void TsDemuxer::startPes(Track& track, const uint8_t* payload, std::size_t size) {
    constexpr std::size_t kFixed = 9;
    if (size < kFixed || payload[0] != 0 || payload[1] != 0 || payload[2] != 1) {
        return;
    }
    const std::size_t header = kFixed + payload[8];
    const std::size_t length = static_cast<std::size_t>(payload[4]) << 8 | payload[5];
    const bool hasPts = (payload[7] & 0x80) != 0 && payload[8] >= 5;
    if (header > size || (length != 0 && length + 6 < header)) {
        return;
    }
    track.packet.payload.clear();
    track.packet.damaged = false;
    track.packet.has_pts = hasPts;
    track.packet.pts = hasPts ? timestampAt(payload + kFixed) : 0;
    track.announced = length == 0 ? 0 : length + 6 - header;
    track.open = true;
    append(track, payload + header, size - header);
}

void TsDemuxer::append(Track& track, const uint8_t* payload, std::size_t size) {
    std::vector<uint8_t>& target = track.packet.payload;
    if (track.announced != 0) {
        size = std::min(size, track.announced - target.size());
    }
    if (target.size() + size > track.limit) {
        track.packet.damaged = true;
        size = track.limit - target.size();
    }
    target.insert(target.end(), payload, payload + size);
    if (track.announced != 0 && target.size() == track.announced) {
        finish(track);
    }
}

void TsDemuxer::finish(Track& track) {
    if (!track.open) {
        return;
    }
    track.open = false;
    if (track.announced > track.packet.payload.size()) {
        track.packet.damaged = true;
    }
    if (&track == &video) {
        sink.onVideo(track.packet);
        return;
    }
    // The data packet follows the image that it describes, so that image is complete.
    finish(video);
    sink.onData(track.packet);
}

}  // namespace oru::stream
