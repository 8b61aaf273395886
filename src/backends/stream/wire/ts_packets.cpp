#include "backends/stream/wire/ts_packets.hpp"

#include <bitstream/mpeg/pes.h>
#include <bitstream/mpeg/psi/desc_05.h>
#include <bitstream/mpeg/psi/pat.h>
#include <bitstream/mpeg/psi/pmt.h>
#include <bitstream/mpeg/ts.h>

#include <algorithm>
#include <cstring>

namespace oru::stream {
namespace {

constexpr uint16_t kMapPid = 0x1000;
constexpr uint16_t kProgram = 1;
constexpr uint16_t kTransportStream = 1;
constexpr std::size_t kRoom = TS_SIZE - TS_HEADER_SIZE;
constexpr std::size_t kMaxPrefix = 16;
constexpr std::size_t kFlagsField = TS_HEADER_SIZE_AF - TS_HEADER_SIZE;
constexpr std::size_t kClockField = TS_HEADER_SIZE_PCR - TS_HEADER_SIZE;

using Identifier = std::array<uint8_t, 4>;
constexpr Identifier kKlv = {'K', 'L', 'V', 'A'};
constexpr Identifier kHevc = {'H', 'E', 'V', 'C'};

uint16_t pidOf(PesUnit::Track track) {
    return track == PesUnit::Track::VIDEO ? kVideoPid : kDataPid;
}

/// A packet that holds one section from its beginning; the rest is stuffing.
TransportPacket sectionPacket(uint16_t pid) {
    TransportPacket packet;
    packet.fill(0xFF);
    ts_init(packet.data());
    ts_set_pid(packet.data(), pid);
    ts_set_unitstart(packet.data());
    ts_set_payload(packet.data());
    *ts_payload(packet.data()) = 0;
    return packet;
}

void finishSection(uint8_t* section, uint16_t extension) {
    psi_set_tableidext(section, extension);
    psi_set_version(section, 0);
    psi_set_current(section);
    psi_set_section(section, 0);
    psi_set_lastsection(section, 0);
    psi_set_crc(section);
}

/// One elementary stream of the programme map; returns where the next one goes.
uint8_t* addStream(uint8_t* at, uint8_t type, uint16_t pid, const Identifier* registration) {
    pmtn_init(at);
    pmtn_set_streamtype(at, type);
    pmtn_set_pid(at, pid);
    pmtn_set_desclength(at, registration == nullptr ? 0 : DESC05_HEADER_SIZE);
    at += PMT_ES_SIZE;
    if (registration == nullptr) {
        return at;
    }
    desc05_init(at);
    desc05_set_identifier(at, registration->data());
    return at + DESC05_HEADER_SIZE;
}

/// PES header and prefix, which always fit into the first transport packet.
class PesHead {
public:
    explicit PesHead(const PesUnit& unit) : length(PES_HEADER_SIZE_PTS + unit.prefix.size()) {
        constexpr uint8_t kMetadataStream = 0xFC;
        const bool video = unit.track == PesUnit::Track::VIDEO;
        const std::size_t rest = length - PES_HEADER_SIZE + unit.payload.size();
        pes_init(bytes.data());
        pes_set_streamid(bytes.data(), video ? PES_STREAM_ID_VIDEO_MPEG : kMetadataStream);
        pes_set_length(bytes.data(), video ? uint16_t{0} : static_cast<uint16_t>(rest));
        pes_set_headerlength(bytes.data(), PES_HEADER_TS_SIZE);
        pes_set_pts(bytes.data(), unit.pts);
        if (!video) {
            pes_set_dataalignment(bytes.data());
        }
        std::copy(unit.prefix.begin(), unit.prefix.end(), bytes.begin() + PES_HEADER_SIZE_PTS);
    }
    [[nodiscard]] const uint8_t* data() const { return bytes.data(); }
    [[nodiscard]] std::size_t size() const { return length; }

private:
    std::array<uint8_t, PES_HEADER_SIZE_PTS + kMaxPrefix> bytes{};
    std::size_t length;
};

/// Bytes that the adaptation field of the first packet takes at least.
std::size_t adaptationBytes(const PesUnit& unit) {
    if (unit.track == PesUnit::Track::VIDEO) {
        return kClockField;
    }
    return unit.random_access || unit.discontinuity ? kFlagsField : 0;
}

/// How many transport packets a PES packet takes.
std::size_t packetCount(const PesUnit& unit) {
    const std::size_t total = adaptationBytes(unit) + PES_HEADER_SIZE_PTS + unit.prefix.size() + unit.payload.size();
    return (total + kRoom - 1) / kRoom;
}

/// Writes header and stuffing of a packet with `size` bytes of payload; where those go.
uint8_t* startPacket(uint8_t* packet, uint16_t pid, uint8_t counter, std::size_t size) {
    ts_init(packet);
    ts_set_pid(packet, pid);
    ts_set_cc(packet, counter);
    ts_set_payload(packet);
    if (size < kRoom) {
        ts_set_adaptation(packet, static_cast<uint8_t>(kRoom - size - 1));
    }
    return packet + TS_SIZE - size;
}

void markFirstPacket(uint8_t* packet, const PesUnit& unit) {
    ts_set_unitstart(packet);
    if (unit.discontinuity) {
        tsaf_set_discontinuity(packet);
    }
    if (unit.random_access) {
        tsaf_set_randomaccess(packet);
    }
    if (unit.track == PesUnit::Track::VIDEO) {
        tsaf_set_pcr(packet, unit.pts);
    }
}

}  // namespace

TransportPacket programAssociation() {
    TransportPacket packet = sectionPacket(PAT_PID);
    uint8_t* section = ts_section(packet.data());
    pat_init(section);
    pat_set_length(section, PAT_PROGRAM_SIZE);
    uint8_t* program = section + PAT_HEADER_SIZE;
    patn_init(program);
    patn_set_program(program, kProgram);
    patn_set_pid(program, kMapPid);
    finishSection(section, kTransportStream);
    return packet;
}

TransportPacket programMap(VideoCodec codec) {
    const bool h265 = codec == VideoCodec::H265;
    TransportPacket packet = sectionPacket(kMapPid);
    uint8_t* section = ts_section(packet.data());
    pmt_init(section);
    pmt_set_pcrpid(section, kVideoPid);
    pmt_set_desclength(section, 0);
    uint8_t* const first = section + PMT_HEADER_SIZE;
    uint8_t* end = addStream(first, h265 ? PMT_STREAMTYPE_VIDEO_HEVC : PMT_STREAMTYPE_VIDEO_AVC, kVideoPid,
                             h265 ? &kHevc : nullptr);
    end = addStream(end, PMT_STREAMTYPE_PRIVATE_PES, kDataPid, &kKlv);
    pmt_set_length(section, static_cast<uint16_t>(end - first));
    finishSection(section, kProgram);
    return packet;
}

uint8_t appendPes(std::vector<uint8_t>& target, const PesUnit& unit, uint8_t counter) {
    const uint16_t pid = pidOf(unit.track);
    const PesHead head(unit);
    const std::size_t begin = target.size();
    target.resize(begin + packetCount(unit) * TS_SIZE);
    uint8_t* packet = target.data() + begin;
    const uint8_t* next = unit.payload.data();
    std::size_t left = unit.payload.size();

    const std::size_t first = std::min(left, kRoom - adaptationBytes(unit) - head.size());
    uint8_t* payload = startPacket(packet, pid, counter++, head.size() + first);
    markFirstPacket(packet, unit);
    std::memcpy(payload, head.data(), head.size());
    std::copy_n(next, first, payload + head.size());
    for (next += first, left -= first; left > 0;) {
        const std::size_t size = std::min(left, kRoom);
        packet += TS_SIZE;
        std::memcpy(startPacket(packet, pid, counter++, size), next, size);
        next += size;
        left -= size;
    }
    return counter & 0x0F;
}

void writeDataPackets(std::vector<uint8_t>& target, const DataPacket& packet) {
    PesUnit unit;
    unit.payload = packet.payload;
    unit.pts = packet.pts;
    unit.random_access = false;
    unit.discontinuity = true;
    const auto first = static_cast<uint8_t>(packet.next_counter - packetCount(unit));
    (void)appendPes(target, unit, first & 0x0F);
}

}  // namespace oru::stream
