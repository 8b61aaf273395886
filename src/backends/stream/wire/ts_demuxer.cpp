#include "backends/stream/wire/ts_demuxer.hpp"

#include <bitstream/mpeg/pes.h>
#include <bitstream/mpeg/psi/desc_05.h>
#include <bitstream/mpeg/psi/pat.h>
#include <bitstream/mpeg/psi/pmt.h>
#include <bitstream/mpeg/ts.h>

#include <algorithm>
#include <cstring>

namespace oru::stream {
namespace {

constexpr uint8_t kRegistration = 0x05;

/// A section that fits into one packet and whose CRC is right, from its header to before its CRC; nothing otherwise.
struct Section {
    const uint8_t* header = nullptr;
    const uint8_t* first = nullptr;  ///< behind the header
    const uint8_t* last = nullptr;
};

Section section(uint8_t table, const uint8_t* payload, std::size_t size) {
    if (size < 1 || std::size_t{1} + payload[0] + PSI_HEADER_SIZE_SYNTAX1 > size) {
        return {};
    }
    const uint8_t* start = payload + 1 + payload[0];
    const std::size_t room = static_cast<std::size_t>(payload + size - start);
    const std::size_t length = std::size_t{PSI_HEADER_SIZE} + psi_get_length(start);
    if (psi_get_tableid(start) != table || length > room || length < PSI_HEADER_SIZE_SYNTAX1 + PSI_CRC_SIZE ||
        !psi_check_crc(start)) {
        return {};
    }
    return {start, start + PSI_HEADER_SIZE_SYNTAX1, start + length - PSI_CRC_SIZE};
}

bool registeredAsKlv(const uint8_t* at, const uint8_t* last) {
    while (last - at >= DESC_HEADER_SIZE && last - at >= DESC_HEADER_SIZE + desc_get_length(at)) {
        if (desc_get_tag(at) == kRegistration && desc_get_length(at) >= 4 &&
            std::memcmp(desc05_get_identifier(at), "KLVA", 4) == 0) {
            return true;
        }
        at += DESC_HEADER_SIZE + desc_get_length(at);
    }
    return false;
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
    if (!ts_validate(packet) || !ts_has_payload(packet)) {
        return;
    }
    std::size_t offset = TS_HEADER_SIZE;
    if (ts_has_adaptation(packet)) {
        offset += std::size_t{1} + ts_get_adaptation(packet);
    }
    if (offset >= kPacketBytes) {
        return;
    }
    const uint16_t pid = ts_get_pid(packet);
    const bool start = ts_get_unitstart(packet);
    const uint8_t* payload = packet + offset;
    const std::size_t size = kPacketBytes - offset;
    if (pid == PAT_PID && start) {
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
    const Section found = section(PAT_TABLE_ID, payload, size);
    for (const uint8_t* at = found.first; found.last - at >= PAT_PROGRAM_SIZE; at += PAT_PROGRAM_SIZE) {
        const bool network = patn_get_program(at) == 0;
        if (!network) {
            mapPid = patn_get_pid(at);
            return;
        }
    }
}

void TsDemuxer::readProgramMap(const uint8_t* payload, std::size_t size) {
    const Section found = section(PMT_TABLE_ID, payload, size);
    if (found.last - found.header < PMT_HEADER_SIZE) {
        return;
    }
    uint16_t videoPid = kNoPid;
    uint16_t dataPid = kNoPid;
    VideoCodec kind = VideoCodec::NONE;
    const uint8_t* at = found.header + PMT_HEADER_SIZE;
    at += std::min<std::ptrdiff_t>(pmt_get_desclength(found.header), found.last - at);
    while (found.last - at >= PMT_ES_SIZE) {
        const uint8_t type = pmtn_get_streamtype(at);
        const uint8_t* descriptors = at + PMT_ES_SIZE;
        const uint8_t* next = descriptors + std::min<std::ptrdiff_t>(pmtn_get_desclength(at), found.last - descriptors);
        const bool carriesKlv = (type == PMT_STREAMTYPE_PRIVATE_PES || type == PMT_STREAMTYPE_META_PES) &&
                                registeredAsKlv(descriptors, next);
        if (videoPid == kNoPid && (type == PMT_STREAMTYPE_VIDEO_AVC || type == PMT_STREAMTYPE_VIDEO_HEVC)) {
            videoPid = pmtn_get_pid(at);
            kind = type == PMT_STREAMTYPE_VIDEO_AVC ? VideoCodec::H264 : VideoCodec::H265;
        } else if (dataPid == kNoPid && carriesKlv) {
            dataPid = pmtn_get_pid(at);
        }
        at = next;
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
    const bool discontinuity =
        ts_has_adaptation(packet) && ts_get_adaptation(packet) > 0 && tsaf_has_discontinuity(packet);
    if (discontinuity) {
        track.counting = false;
    }
    if (!checkContinuity(track, ts_get_cc(packet))) {
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
    constexpr std::array<uint8_t, 3> kStartCode = {0, 0, 1};
    if (size < PES_HEADER_SIZE_NOPTS || !std::equal(kStartCode.begin(), kStartCode.end(), payload)) {
        return;
    }
    const std::size_t header = std::size_t{PES_HEADER_SIZE_NOPTS} + pes_get_headerlength(payload);
    const std::size_t length = pes_get_length(payload);
    const bool hasPts = pes_has_pts(payload) && header >= PES_HEADER_SIZE_PTS;
    if (header > size || (length != 0 && length + PES_HEADER_SIZE < header)) {
        return;
    }
    track.packet.payload.clear();
    track.packet.damaged = false;
    track.packet.has_pts = hasPts;
    track.packet.pts = hasPts ? pes_get_pts(payload) : 0;
    track.announced = length == 0 ? 0 : length + PES_HEADER_SIZE - header;
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
